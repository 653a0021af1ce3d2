#ifndef TAVO_TESTS_ALTERED_NUMBER_FORMAT_H
#define TAVO_TESTS_ALTERED_NUMBER_FORMAT_H

#include <iomanip>
#include <ios>
#include <iostream>
#include <locale>
#include <string>

namespace support {

/// While an object of this class exists, std::cout prints numbers as an application may have
/// configured it: hexadecimal, with base prefix and sign, digits grouped.
class AlteredNumberFormat {
public:
    AlteredNumberFormat() {
        std::cout << std::hex << std::showbase << std::showpos << std::uppercase;
        std::cout.imbue(std::locale(locale_, new Groups));
    }
    ~AlteredNumberFormat() {
        std::cout.flags(flags_);
        std::cout.imbue(locale_);
    }
    AlteredNumberFormat(const AlteredNumberFormat&) = delete;
    AlteredNumberFormat& operator=(const AlteredNumberFormat&) = delete;

private:
    class Groups : public std::numpunct<char> {
    protected:
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\2"; }
    };

    const std::ios::fmtflags flags_ = std::cout.flags();
    const std::locale locale_ = std::cout.getloc();
};

} // namespace support

#endif
