// Joins the default DDS domain and prints arrivals and departures, for tests that need a peer in
// another process. Prints "ready" when it watches, then "+ ID NAME" for each other participant.
// Prints "- ID" when a participant leaves or its lease expires. Ends at the end of standard input.
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include <unistd.h>

#include <dds/dds.h>

namespace {

dds_guid_t ownId;

std::string hex(const dds_guid_t& id) {
    std::string text;
    for (const unsigned char byte : id.v) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

std::string nameOf(const dds_builtintopic_participant_t& participant) {
    char* name = nullptr;
    if (!dds_qget_entity_name(participant.qos, &name) || name == nullptr)
        return "";
    const std::string copy = name;
    dds_free(name);
    return copy;
}

void report(const dds_builtintopic_participant_t& participant, const dds_sample_info_t& info) {
    // Participants repeat their announcements; only changes count.
    static std::set<std::string> present;
    if (std::memcmp(participant.key.v, ownId.v, sizeof ownId.v) == 0)
        return;
    const std::string id = hex(participant.key);
    if (info.instance_state == DDS_IST_ALIVE) {
        if (present.insert(id).second)
            std::printf("+ %s %s\n", id.c_str(), nameOf(participant).c_str());
    } else if (present.erase(id) > 0) {
        std::printf("- %s\n", id.c_str());
    }
}

// Printed before the first event, which may arrive during the creation of the reader.
void printReady() {
    static std::once_flag said;
    std::call_once(said, [] { std::puts("ready"); });
    std::fflush(stdout);
}

// Runs on one of Cyclone's threads.
void onData(dds_entity_t reader, void*) {
    printReady();
    for (;;) {
        void* sample = nullptr;
        dds_sample_info_t info;
        const dds_return_t count = dds_take(reader, &sample, &info, 1, 1);
        if (count <= 0)
            break;
        report(*static_cast<const dds_builtintopic_participant_t*>(sample), info);
        dds_return_loan(reader, &sample, count);
    }
    std::fflush(stdout);
}

} // namespace

int main() {
    const dds_entity_t participant = dds_create_participant(DDS_DOMAIN_DEFAULT, nullptr, nullptr);
    if (participant < 0 || dds_get_guid(participant, &ownId) != DDS_RETCODE_OK) {
        std::fprintf(stderr, "dds_watcher: cannot join the domain\n");
        return 1;
    }
    dds_listener_t* const listener = dds_create_listener(nullptr);
    dds_lset_data_available(listener, onData);
    const dds_entity_t reader =
        dds_create_reader(participant, DDS_BUILTIN_TOPIC_DCPSPARTICIPANT, nullptr, listener);
    dds_delete_listener(listener);
    if (reader < 0) {
        std::fprintf(stderr, "dds_watcher: cannot read the builtin topic\n");
        return 1;
    }
    printReady();
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return dds_delete(participant) == DDS_RETCODE_OK ? 0 : 1;
}
