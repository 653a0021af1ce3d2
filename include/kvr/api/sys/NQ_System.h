#ifndef KVR_API_SYS_NQ_SYSTEM_H
#define KVR_API_SYS_NQ_SYSTEM_H

#include <kvr/api/export.h>

#include <string>

namespace kvr {
namespace api {
namespace sys {

/// Reads properties of this program and of the gateway that it runs on, and controls other
/// processes.
///
/// Security: `pidof`, `fw_printenv` and a script's commands are found along PATH, and the lock
///           file's name in /tmp is trusted. A user who holds a lock on that file first makes
///           appAlreadyRunning() return true: create the file as root when the system starts.
/// Threads: any thread, concurrently.
class TAVO_API NQ_System {
public:
    /// Sends "Executing..." and the script to the system log (LOG_INFO), runs it in the shell and
    /// returns the result of system(3): the raw wait status, or -1. Nothing is quoted, and a
    /// percent sign in the script is interpreted by the log (see NQ_Logger::logSysLog()): never
    /// pass text from outside. Throws what NQ_Logger::instance() throws.
    static int runScript(const std::string& script);

    /// Calls kill(2) and returns its result: 0, or -1 with errno set. Trap: `pid` 0, which
    /// getProcIdByName() returns for "not found", signals the caller's whole process group.
    static int sendSIG2Proc(int pid, int signal);

    /// The target of a symbolic link, cut at 4095 bytes; empty when it cannot be read.
    static std::string do_readlink(const std::string& path);

    /// File name of the running program, from /proc/self/exe; empty when that cannot be read.
    static std::string getAppName();

    /// Directory of the running program, without a trailing slash; empty when it cannot be read.
    static std::string getAppDir();

    /// Single-instance rule: locks the file /tmp/NAME.pid (which holds no process id) for the rest
    /// of the process's life. Returns true only when another process holds the lock; false when
    /// this one holds it, and on every other error. A file that was removed is created and locked
    /// again. Call it after daemon(3), not before: a forked child is another process, and finds the
    /// lock that it inherited held by its parent.
    static bool appAlreadyRunning();

    /// Whether the board has a cellular modem: /dev/cdc-wdm0 can be opened.
    static bool hasCellularModem();
    /// Whether /opt/apps/ZEQ can be opened.
    static bool hasModbus2MqttApp();
    /// Whether /opt/apps/VEXLORTORED can be opened.
    static bool hasVexlor2RedApp();
    /// Whether /opt/apps/Vexlor can be opened.
    static bool hasVexlorApp();
    /// Whether /opt/apps/NodeRED can be opened.
    static bool hasNodeRedApp();

    /// A process id of a program, from `pidof -s`; 0 when there is none. The shell interprets
    /// `name`: never pass text from outside.
    static int getProcIdByName(std::string name);

    /// Value of a U-Boot variable, as `fw_printenv` prints it, without newlines. Deliberate: cut at
    /// a "=" in it. Throws std::out_of_range when the tool prints no "=". U-Boot's own tool does
    /// that for a variable that is not set; libubootenv's prints an empty value. A failing fork()
    /// ends the process.
    static std::string get_uboot_env_setting(const std::string& name);

    /// The U-Boot variable "sn". Throws what get_uboot_env_setting() throws.
    static std::string getDeviceSerialNumber();

    /// "portID" of /opt/apps/ZEQ/cfg/ZEQ.json, the serial port's configuration; "1" when that file
    /// cannot be opened, "" when it has no such key. A file that does not parse ("Unable to parse
    /// json" is printed) has no keys; a key that is null raises std::logic_error.
    static std::string getPortId();

    /// "RS485" when getPortId() is "1", else "RS232". Raises what getPortId() raises.
    static std::string getPortIdName();
};

} // namespace sys
} // namespace api
} // namespace kvr

#endif
