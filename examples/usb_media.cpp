// Mounts a removable device whenever it is plugged in, and prints what is on it.

#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>

#include "program.h"

#include <cstdio>
#include <exception>
#include <string>

#include <signal.h>

namespace {

program::Description self = {
    "usb_media",
    "Usage: usb_media DEVICE DIRECTORY\n"
    "Mounts /dev/DEVICE on DIRECTORY when the device appears, lists its files, and unmounts\n"
    "it when the device disappears, until SIGTERM or SIGINT. Creates DIRECTORY when it is\n"
    "missing. Needs the right to mount.\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 DIRECTORY cannot be created, 2 usage error.\n"};

/// The library puts both names into command lines of the shell as they are.
bool isHarmless(const std::string& name, const char* more) {
    const std::string allowed =
        std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-") + more;
    return !name.empty() && name[0] != '-' && name.find_first_not_of(allowed) == std::string::npos;
}

/// Leaves the device at `optind`, and the directory after it.
void parseOptions(int argc, char** argv) {
    program::parseHelpOnly(self, argc, argv);
    if (argc - optind != 2)
        program::usageError(self, "a DEVICE and a DIRECTORY are needed");
    if (!isHarmless(argv[optind], ""))
        program::usageError(self, "the DEVICE must be a plain name, such as sda1");
    if (!isHarmless(argv[optind + 1], "/"))
        program::usageError(
            self,
            "the DIRECTORY may contain only letters, digits and /_.-, and must not begin with -");
}

} // namespace

int main(int argc, char** argv) {
    parseOptions(argc, argv);
    const std::string device = argv[optind];
    const std::string directory = argv[optind + 1];
    const sigset_t endSignals = program::blockEndSignals();

    try {
        // The callbacks run on the watching thread, except for a device that is present at the
        // start or the end. They must not throw: that would end the program.
        const kvr::api::AutoMount media(
            device, directory,
            [&] {
                program::say("usb_media: " + device + " is mounted");
                for (const std::string& file :
                     kvr::api::file::NQ_FileUtils::getFilesFromDir(directory))
                    program::say("usb_media: " + file);
            },
            [&] { program::say("usb_media: " + device + " is unmounted"); });
        program::waitForEnd(endSignals);
        // An object destroyed right after its construction may hang: a stop is lost when the thread
        // has not begun its loop. A signal can arrive that early.
        kvr::api::datetime::NQ_Time::delay(100);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "usb_media: %s\n", error.what());
        return 1;
    }
    return 0;
}
