#ifndef TAVO_AGENT_UCI_SECTION_H
#define TAVO_AGENT_UCI_SECTION_H

#include "rpc/Json.h"
#include "rpc/Params.h"

#include <cstddef>
#include <string>
#include <vector>

namespace agent {

/// The parameters "config" and "section": which section of which package is meant.
class UciName {
public:
    /// Refuses names that the tools do not accept, and every character with a meaning in a shell or
    /// a path.
    explicit UciName(const Params& params);

    const std::string& config() const { return config_; }
    const std::string& section() const { return section_; }

    /// True for "@TYPE[INDEX]", a position. A position names another section once a section before
    /// it is deleted.
    bool isPosition() const { return !positionType_.empty(); }
    /// TYPE of a position; empty for a name.
    const std::string& positionType() const { return positionType_; }

    /// "network/lan", for messages.
    std::string text() const { return config_ + "/" + section_; }

private:
    std::string config_;
    std::string section_;
    std::string positionType_;
};

/// A section as the tools report it, uncommitted changes included.
struct UciSection {
    bool exists = false;
    /// True when it has only a generated name, such as cfg0392bd, made from its position whenever
    /// the file is loaded.
    bool anonymous = false;
    std::string name; ///< its own or generated name
    std::string type;
    Json options; ///< an object of texts and of arrays of texts; null when the section is missing
};

/// Reads a section. Throws RpcError with the tool's message when that fails. NQ_UBUS would use that
/// message as a section.
UciSection readSection(const UciName& name);

/// The number of sections of a type in a package. Throws RpcError as readSection() does.
std::size_t countSections(const std::string& config, const std::string& type);

/// The names of the options whose values in `asked` and `present` differ. An option that is "" in
/// `asked` must be missing in `present`.
std::vector<std::string> optionsThatDiffer(const Json& asked, const Json& present);

} // namespace agent

#endif
