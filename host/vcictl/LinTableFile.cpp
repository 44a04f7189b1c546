#include "vcictl/LinTableFile.h"

#include "vcictl/Command.h"
#include "vcihost/InputFile.h"

#include <sstream>

std::vector<vcihost::LinSlot> ReadLinTableFile(const std::string& path) {
    if (path == "-") {
        std::istringstream input(ReadStandardInput("the table"));
        return vcihost::ReadLinTable(input, "standard input");
    }
    std::ifstream file = vcihost::OpenInput(path);
    auto table = vcihost::ReadLinTable(file, path);
    vcihost::CheckReadToEnd(file, path);
    return table;
}
