#include "methods/SystemDescribe.h"

namespace agent {

SystemDescribe::SystemDescribe(const std::vector<const CallbackMethod*>& others)
    : Method("system.describe", "lists all methods with their descriptions"), methods_{this} {
    methods_.insert(methods_.end(), others.begin(), others.end());
}

Json SystemDescribe::run(const Params& params) {
    params.allowOnly({});
    Json list = newArray();
    for (const CallbackMethod* method : methods_) {
        Json entry = newObject();
        put(entry, "name", newText(method->GetName()));
        put(entry, "description", newText(method->GetDescription()));
        json_object_array_add(list.get(), entry.release());
    }
    Json result = newObject();
    put(result, "methods", std::move(list));
    return result;
}

} // namespace agent
