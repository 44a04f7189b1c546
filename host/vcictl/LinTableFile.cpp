#include "vcictl/LinTableFile.h"

#include "vcictl/Command.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

std::vector<vcihost::LinSlot> ReadLinTableFile(const std::string& path) {
    if (path == "-") {
        std::istringstream input(ReadStandardInput("the table"));
        return vcihost::ReadLinTable(input, "standard input");
    }
    std::ifstream file(path);
    // A directory opens, and fails only at the first character.
    if (!file || (file.peek() == std::ifstream::traits_type::eof() && file.bad())) {
        throw UsageError(fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    }
    file.clear();
    return vcihost::ReadLinTable(file, path);
}
