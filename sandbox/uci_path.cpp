#include "uci_path.h"

#include "uci_error.h"
#include "uci_words.h"

#include <array>
#include <cstdlib>

namespace uci {

Path parsePath(const std::string& text) {
    Path path;
    const std::size_t equals = text.find('=');
    if (equals != std::string::npos)
        path.value = text.substr(equals + 1);

    std::string rest = text.substr(0, equals);
    const std::size_t first = rest.find('.');
    path.package = rest.substr(0, first);
    if (first != std::string::npos) {
        rest.erase(0, first + 1);
        const std::size_t second = rest.find('.');
        path.section = rest.substr(0, second);
        if (second != std::string::npos)
            path.option = rest.substr(second + 1);
    }
    if (!isPackageName(path.package) || (path.option && !isName(*path.option)) ||
        (path.value && !isValue(*path.value)))
        throw Error(Error::Kind::Parse);
    return path;
}

Option* Target::existingOption() const {
    return section != nullptr && option ? section->find(*option) : nullptr;
}

bool Target::isComplete() const {
    return section != nullptr && (!option || existingOption() != nullptr);
}

Target resolve(Package& package, const std::string& section,
               const std::optional<std::string>& option) {
    Section* const found = isName(section) ? package.find(section) : findByIndex(package, section);
    return {found, found != nullptr ? found->name : section, option};
}

Section* findByIndex(Package& package, const std::string& text) {
    const std::size_t open = text.find('[');
    if (text.empty() || text.front() != '@' || open == std::string::npos)
        throw Error(Error::Kind::InvalidArgument);
    const std::size_t close = text.find(']', open);
    if (close == std::string::npos || close + 1 != text.size())
        throw Error(Error::Kind::InvalidArgument);
    const std::string type = text.substr(1, open - 1);
    const std::string number = text.substr(open + 1, close - open - 1);
    char* end = nullptr;
    const int index = static_cast<int>(std::strtol(number.c_str(), &end, 10));
    if (*end != '\0' || (!type.empty() && !isTypeName(type)))
        throw Error(Error::Kind::InvalidArgument);
    return package.at(type, index);
}

} // namespace uci
