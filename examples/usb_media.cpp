// Mounts a removable device whenever it is plugged in, and tells what is on it.

#include <kvr/api/NQ_AutoMount.h>
#include <kvr/api/datetime/NQ_Time.h>
#include <kvr/api/file/NQ_Files.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include <getopt.h>
#include <pthread.h>
#include <signal.h>

namespace {

const char kHelp[] =
    "Usage: usb_media DEVICE DIRECTORY\n"
    "Mounts /dev/DEVICE on DIRECTORY whenever it is there, lists its files, and unmounts it\n"
    "when it goes, until SIGTERM or SIGINT. DIRECTORY is made when missing. Needs the rights\n"
    "to mount.\n"
    "\n"
    "  --help   print this text and exit\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 DIRECTORY cannot be made, 2 usage error.\n";

[[noreturn]] void usageError(const std::string& problem) {
    if (!problem.empty())
        std::fprintf(stderr, "usb_media: %s\n", problem.c_str());
    std::fputs("Try 'usb_media --help' for more information.\n", stderr);
    std::exit(2);
}

/// The library puts both names into command lines of the shell as they are.
bool isHarmless(const std::string& name, const char* more) {
    const std::string allowed =
        std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-") + more;
    return !name.empty() && name[0] != '-' && name.find_first_not_of(allowed) == std::string::npos;
}

/// Leaves the device at `optind`, and the directory behind it.
void parseOptions(int argc, char** argv) {
    static const option known[] = {
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
    };
    char programName[] = "usb_media";
    argv[0] = programName; // what getopt_long() begins its messages with
    int found;
    while ((found = getopt_long(argc, argv, "", known, nullptr)) != -1) {
        if (found != 'h')
            usageError(""); // getopt_long() has said what is wrong
        std::fputs(kHelp, stdout);
        std::exit(0);
    }
    if (argc - optind != 2)
        usageError("a DEVICE and a DIRECTORY are needed");
    if (!isHarmless(argv[optind], ""))
        usageError("the DEVICE is not a plain name, such as sda1");
    if (!isHarmless(argv[optind + 1], "/"))
        usageError("the DIRECTORY has characters that a command line cannot carry");
}

/// Keeps the signals that end the program for sigwait(), in the watching thread, too.
sigset_t blockEndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    parseOptions(argc, argv);
    const std::string device = argv[optind];
    const std::string directory = argv[optind + 1];
    const sigset_t endSignals = blockEndSignals();

    try {
        // The callbacks run on the watching thread, save for a device there at the start or the
        // end. An exception out of them would end the program.
        const kvr::api::AutoMount media(
            device, directory,
            [&] {
                say("usb_media: " + device + " is mounted");
                for (const std::string& file :
                     kvr::api::file::NQ_FileUtils::getFilesFromDir(directory))
                    say("usb_media: " + file);
            },
            [&] { say("usb_media: " + device + " is unmounted"); });
        int signal = 0;
        sigwait(&endSignals, &signal);
        // An object destroyed right after its construction may hang: the stop of a thread that has
        // not begun its loop is lost. A signal can be that early.
        kvr::api::datetime::NQ_Time::delay(100);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "usb_media: %s\n", error.what());
        return 1;
    }
    return 0;
}
