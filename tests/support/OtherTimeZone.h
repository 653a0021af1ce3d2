#ifndef TAVO_TESTS_OTHER_TIME_ZONE_H
#define TAVO_TESTS_OTHER_TIME_ZONE_H

#include <cstdlib>

#include <time.h>

namespace support {

/// Sets the process's time zone to three and a half hours east while an object exists.
class OtherTimeZone {
public:
    OtherTimeZone() {
        setenv("TZ", "XYZ-3:30", 1);
        tzset();
    }
    ~OtherTimeZone() {
        unsetenv("TZ");
        tzset();
    }
    OtherTimeZone(const OtherTimeZone&) = delete;
    OtherTimeZone& operator=(const OtherTimeZone&) = delete;
};

} // namespace support

#endif
