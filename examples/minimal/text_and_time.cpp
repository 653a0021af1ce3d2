// Splits a line into fields, and converts a time between ISO 8601 text and seconds.

#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>

#include <iostream>
#include <string>
#include <vector>

#include <sys/time.h>

using kvr::api::data::NQ_Strings;
using kvr::api::datetime::NQ_Time;

int main() {
    std::string line = "eth0;up;;  1000   Mbit/s";
    NQ_Strings::reduceSpace(line);
    const std::vector<std::string> fields = NQ_Strings::split(line, ';');
    std::cout << fields.size() << " fields, the last is \"" << fields.back() << "\"\n";

    timeval time = NQ_Time::dateStrToTv("2020-01-02T03:04:05.123Z"); // UTC, with milliseconds
    std::cout << time.tv_sec << " s and " << time.tv_usec << " us\n";
    time.tv_sec += 86400;
    std::cout << "a day later: " << NQ_Time::tvToDateStr(time) << '\n';

    timeval start;
    timeval end;
    gettimeofday(&start, nullptr);
    NQ_Time::delay(20); // milliseconds
    gettimeofday(&end, nullptr);
    std::cout << (NQ_Time::timevaldiffMilli(start, end) >= 20 ? "waited"
                                                              : "interrupted by a signal")
              << '\n';
}
