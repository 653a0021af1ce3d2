#include "text.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

namespace bench::floor {

std::vector<std::string> split(const std::string& text, char delimiter) {
    std::vector<std::string> fields;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = text.find(delimiter, start);
        if (end == std::string::npos)
            end = text.size();
        fields.emplace_back(text, start, end - start);
        start = end + 1;
    }
    return fields;
}

std::string timeText(const timeval& time) {
    tm parts;
    if (gmtime_r(&time.tv_sec, &parts) == nullptr)
        return std::string();
    char text[48];
    const std::size_t length = std::strftime(text, 26, "%Y-%m-%dT%H:%M:%S", &parts);
    if (length == 0)
        return std::string();
    const int more = std::snprintf(text + length, sizeof text - length, ".%03ldZ",
                                   static_cast<long>(time.tv_usec / 1000));
    return std::string(text, length + static_cast<std::size_t>(more));
}

timeval timeOf(const std::string& text) {
    tm parts = {};
    (void)strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    timeval time = {};
    time.tv_sec = timegm(&parts);
    std::string fraction(text, text.find('.') + 1);
    if (fraction.empty())
        throw std::out_of_range("no fraction");
    fraction.pop_back();
    time.tv_usec = std::strtol(fraction.c_str(), nullptr, 10) * 1000;
    return time;
}

} // namespace bench::floor
