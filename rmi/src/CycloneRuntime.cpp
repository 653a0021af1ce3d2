#include "CycloneRuntime.h"

#include "RuntimeOptions.h"

#include <cstdio>
#include <cstring>

#include <dds/ddsrt/log.h>

namespace org::opensplice::DDS_RMI {

namespace {

/// The first error that Cyclone DDS logged, without a newline; empty when there was none.
struct ErrorText {
    char text[256] = "";
};

/// Keeps the first error, which Cyclone DDS would otherwise print on standard error. Warnings and
/// lesser records are still printed. Cyclone DDS calls this on any of its threads, one at a time.
void keepFirstError(void* kept, const dds_log_data_t* record) {
    char* const text = static_cast<ErrorText*>(kept)->text;
    const int length = static_cast<int>(std::strcspn(record->message, "\n"));
    if ((record->priority & DDS_LC_ERROR) == 0)
        std::fprintf(stderr, "%.*s\n", length, record->message);
    else if (text[0] == '\0')
        std::snprintf(text, sizeof(ErrorText::text), "%.*s", length, record->message);
}

/// Returns a participant in the default domain, or a negative error code.
dds_entity_t join(const char* name, ErrorText& error) {
    dds_qos_t* const qos = dds_create_qos();
    if (name != nullptr)
        dds_qset_entity_name(qos, name);
    dds_set_log_sink(keepFirstError, &error);
    const dds_entity_t created = dds_create_participant(DDS_DOMAIN_DEFAULT, qos, nullptr);
    dds_set_log_sink(nullptr, nullptr);
    dds_delete_qos(qos);
    return created;
}

} // namespace

bool CycloneRuntime::start(int argc, const char* argv[]) {
    if (!checkOptions(argc, argv))
        return false;
    const std::lock_guard<std::mutex> lock(turn);
    if (participant > 0)
        return true;
    ErrorText error;
    const dds_entity_t created = join(argc > 0 ? argv[0] : nullptr, error);
    const bool explained = error.text[0] != '\0';
    if (created < 0) {
        std::fprintf(stderr, "DDS RMI runtime: cannot join the DDS domain: %s\n",
                     explained ? error.text : dds_strretcode(-created));
        return false;
    }
    // Joined in spite of an error, so the text that was held back is printed now.
    if (explained)
        std::fprintf(stderr, "%s\n", error.text);
    participant = created;
    return true;
}

bool CycloneRuntime::stop() {
    const std::lock_guard<std::mutex> lock(turn);
    if (participant <= 0)
        return false;
    const dds_return_t result = dds_delete(participant);
    participant = 0;
    return result == DDS_RETCODE_OK;
}

bool CycloneRuntime::isUsable() {
    const std::lock_guard<std::mutex> lock(turn);
    return participant > 0;
}

} // namespace org::opensplice::DDS_RMI
