#include "kvr/api/sys/NQ_System.h"

#include <kvr/api/data/NQ_JSON.h>
#include <kvr/api/data/NQ_Strings.h>
#include <kvr/api/file/NQ_Files.h>
#include <kvr/api/log/NQ_Logger.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

namespace kvr::api::sys {
namespace {

constexpr char kPortConfiguration[] = "/opt/apps/ZEQ/cfg/ZEQ.json";

/// Directories count as well.
bool canBeOpened(const char* path) { return std::ifstream(path, std::ios::in).is_open(); }

/// A process, and the lock file that it has locked.
struct HeldLock {
    pid_t process;
    dev_t device;
    ino_t inode;
};

/// The lock that appAlreadyRunning() took last. Guarded by heldLockMutex, which is also held while
/// a lock is taken: no thread may find the file locked before it is recorded here. Neither has a
/// destructor, which could run while other threads still use them.
HeldLock heldLock = {};
pthread_mutex_t heldLockMutex = PTHREAD_MUTEX_INITIALIZER;

class HeldLockGuard {
public:
    HeldLockGuard() { pthread_mutex_lock(&heldLockMutex); }
    ~HeldLockGuard() { pthread_mutex_unlock(&heldLockMutex); }
    HeldLockGuard(const HeldLockGuard&) = delete;
    HeldLockGuard& operator=(const HeldLockGuard&) = delete;
};

/// Returns what appAlreadyRunning() records when this process locks the open file `descriptor`. The
/// process need not hold that lock.
HeldLock lockOf(int descriptor) {
    struct stat status = {};
    (void)fstat(descriptor, &status); // it is open, so this does not fail
    return {getpid(), status.st_dev, status.st_ino};
}

bool isHeld(const HeldLock& lock) {
    return lock.process == heldLock.process && lock.device == heldLock.device &&
           lock.inode == heldLock.inode;
}

std::string ownProgram() { return NQ_System::do_readlink("/proc/self/exe"); }

} // namespace

int NQ_System::runScript(const std::string& script) {
    log::NQ_Logger* logger = log::NQ_Logger::instance();
    logger->logSysLog(LOG_INFO, "Executing...");
    logger->logSysLog(LOG_INFO, script.c_str());
    return std::system(script.c_str());
}

int NQ_System::sendSIG2Proc(int pid, int signal) { return kill(pid, signal); }

std::string NQ_System::do_readlink(const std::string& path) {
    char target[4095];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length == -1 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

std::string NQ_System::getAppName() {
    const std::string program = ownProgram();
    return program.substr(program.find_last_of('/') + 1);
}

std::string NQ_System::getAppDir() {
    const std::string program = ownProgram();
    return program.substr(0, program.find_last_of('/'));
}

bool NQ_System::appAlreadyRunning() {
    const std::string path = "/tmp/" + getAppName() + ".pid";
    const HeldLockGuard guard;
    const int lockFile = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (flock(lockFile, LOCK_EX | LOCK_NB) == 0) {
        heldLock = lockOf(lockFile);
        return false; // Deliberate: the descriptor stays open, and with it the lock held, until the
                      // process ends.
    }
    // The kernel refuses a lock through a second descriptor of the file also to the process that
    // holds it. A forked child is another process.
    const bool heldByAnother = errno == EAGAIN && !isHeld(lockOf(lockFile));
    if (lockFile != -1)
        close(lockFile);
    return heldByAnother;
}

bool NQ_System::hasCellularModem() { return canBeOpened("/dev/cdc-wdm0"); }

bool NQ_System::hasModbus2MqttApp() { return canBeOpened("/opt/apps/ZEQ"); }

bool NQ_System::hasVexlor2RedApp() { return canBeOpened("/opt/apps/VEXLORTORED"); }

bool NQ_System::hasVexlorApp() { return canBeOpened("/opt/apps/Vexlor"); }

bool NQ_System::hasNodeRedApp() { return canBeOpened("/opt/apps/NodeRED"); }

int NQ_System::getProcIdByName(std::string name) {
    FILE* output = popen(("pidof -s " + name).c_str(), "r");
    if (output == nullptr)
        return 0;
    char line[512] = "";
    std::ignore = std::fgets(line, sizeof line, output); // no line reads as 0
    const unsigned long id = std::strtoul(line, nullptr, 10);
    pclose(output);
    return static_cast<int>(id);
}

std::string NQ_System::get_uboot_env_setting(const std::string& name) {
    const std::string output = file::NQ_Popen::execute("fw_printenv", {name});
    std::vector<std::string> fields = data::NQ_Strings::split(output, '=');
    if (fields.size() < 2) {
        // The text of GNU's std::vector::at(), written here so that it is the same with every
        // standard library.
        char text[128];
        (void)std::snprintf(
            text, sizeof text,
            "vector::_M_range_check: __n (which is %zu) >= this->size() (which is %zu)",
            std::size_t{1}, fields.size());
        throw std::out_of_range(text);
    }
    std::string& value = fields[1];
    value.erase(std::remove(value.begin(), value.end(), '\n'), value.end());
    return std::move(value);
}

std::string NQ_System::getDeviceSerialNumber() { return get_uboot_env_setting("sn"); }

std::string NQ_System::getPortId() {
    if (!canBeOpened(kPortConfiguration))
        return "1";
    return data::NQ_JSON::fromFile(kPortConfiguration).get_json_string("portID");
}

std::string NQ_System::getPortIdName() { return getPortId() == "1" ? "RS485" : "RS232"; }

} // namespace kvr::api::sys
