#pragma once

#include <fstream>
#include <string>

// Files that are read from front to back. Both functions throw FileError.
namespace vcihost {

// Opens a file. A directory, which opens as well, is refused here and not at its first character.
std::ifstream OpenInput(const std::string& path);

// Behind the last read: refuses an input that failed before its end.
void CheckReadToEnd(const std::istream& input, const std::string& path);

} // namespace vcihost
