#include "modules/BuildDate.h"

#include <charconv>
#include <map>

namespace {

uint32_t Number(const std::string& digits) {
    uint32_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}

} // namespace

std::string_view CompileDate() {
    return __DATE__;
}

int getMonthNumber(const std::string& month) {
    static const std::map<std::string, int> numbers{
        {"Jan", 1}, {"Feb", 2}, {"Mar", 3}, {"Apr", 4},  {"May", 5},  {"Jun", 6},
        {"Jul", 7}, {"Aug", 8}, {"Sep", 9}, {"Oct", 10}, {"Nov", 11}, {"Dec", 12},
    };
    const auto found = numbers.find(month);
    return found == numbers.end() ? 0 : found->second;
}

uint32_t GetBuildTime(std::string_view date) {
    std::string text(date);
    text.resize(std::string_view("Mmm dd yyyy").size()); // a shorter one has no digits there
    const std::string month = text.substr(0, 3);
    std::string day = text.substr(4, 2);
    const std::string year = text.substr(7, 4);
    if (day[0] == ' ') {
        day[0] = '0';
    }
    return Number(year) * 10000 + static_cast<uint32_t>(getMonthNumber(month)) * 100 + Number(day);
}
