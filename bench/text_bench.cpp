#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/datetime/NQ_Time.h>

#include "floor/text.h"
#include "measure.h"

#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using kvr::api::datetime::NQ_Time;

const std::string kFields = "name=value=another=more=and=the=last";
const std::string kDate = "2020-01-02T03:04:05.123Z";
constexpr timeval kTime = {1577934245, 123000};

void addSplit() {
    const std::string operation = "split 7 fields";
    add(operation, kLibrary,
        [] { return [] { DoNotOptimize(kvr::api::data::NQ_Strings::split(kFields, '=')); }; });
    add(operation, kFloor, [] { return [] { DoNotOptimize(floor::split(kFields, '=')); }; });
    add(operation, "std::getline", [] {
        return [] {
            std::vector<std::string> fields;
            std::istringstream stream(kFields);
            for (std::string field; std::getline(stream, field, '=');)
                fields.push_back(field);
            DoNotOptimize(fields);
        };
    });
}

void addTimes() {
    const std::string format = "time to text";
    add(format, kLibrary, [] { return [] { DoNotOptimize(NQ_Time::tvToDateStr(kTime)); }; });
    add(format, kFloor, [] { return [] { DoNotOptimize(floor::timeText(kTime)); }; });
    add(format, "std::put_time", [] {
        return [] {
            tm parts;
            gmtime_r(&kTime.tv_sec, &parts);
            std::ostringstream text;
            text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%S") << '.' << std::setw(3)
                 << std::setfill('0') << kTime.tv_usec / 1000 << 'Z';
            DoNotOptimize(text.str());
        };
    });

    const std::string parse = "time from text";
    add(parse, kLibrary, [] { return [] { DoNotOptimize(NQ_Time::dateStrToTv(kDate)); }; });
    add(parse, kFloor, [] { return [] { DoNotOptimize(floor::timeOf(kDate)); }; });
    add(parse, "std::get_time", [] {
        return [] {
            tm parts = {};
            char dot = 0;
            long milliseconds = 0;
            std::istringstream text(kDate);
            text >> std::get_time(&parts, "%Y-%m-%dT%H:%M:%S") >> dot >> milliseconds;
            DoNotOptimize(timeval{timegm(&parts), milliseconds * 1000});
        };
    });
}

} // namespace

void addText() {
    addSplit();
    addTimes();
}

} // namespace bench
