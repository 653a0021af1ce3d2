#include "methods/UciGet.h"

#include "methods/UciSection.h"

namespace agent {

UciGet::UciGet() : Method("uci.get", "reads a section of the configuration: config, section") {}

Json UciGet::run(const Params& params) {
    params.allowOnly({"config", "section"});
    const UciName name(params);
    const UciSection section = readSection(name);

    Json result = newObject();
    put(result, "config", newText(name.config()));
    put(result, "section", newText(name.section()));
    put(result, "exists", newBool(section.exists));
    if (section.exists) {
        put(result, "name", newText(section.name));
        put(result, "type", newText(section.type));
        put(result, "anonymous", newBool(section.anonymous));
        put(result, "values", share(section.options.get()));
    }
    return result;
}

} // namespace agent
