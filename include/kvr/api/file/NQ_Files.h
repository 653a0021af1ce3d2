#ifndef KVR_API_FILE_NQ_FILES_H
#define KVR_API_FILE_NQ_FILES_H

#include <kvr/api/export.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

/// Starts a program, found along PATH, with a pipe to or from it. No shell is involved.
///
/// `command` names the program and is also its argument 0; `args` follow unchanged. With `type` "r"
/// the returned stream reads the program's standard output and standard error, merged; any other
/// `type` gives a stream that writes to its standard input. `pid` receives the child's process id.
/// Release both with pclose2().
///
/// Ends the process: when fork() fails, after perror() "fork", with exit(1).
///
/// Trap: when the program cannot be executed, the forked copy of the caller prints perror()
///       "execvp" (which lands in an "r" pipe) and then RETURNS from this call with `pid` 0 and a
///       null stream. A direct caller must end that copy at once, before it runs any of the
///       caller's code:
/// @code
///     FILE* stream = popen2(command, args, "r", pid);
///     if (pid == 0)
///         _exit(127);
/// @endcode
/// A null stream with another `pid` means that no pipe, or no stream for it, could be made; the child
/// still is to be waited for.
///
/// Writing to a program that has ended raises SIGPIPE, which ends the process unless it is ignored.
///
/// The descriptors are not close-on-exec: a child started meanwhile inherits them. Keep descriptors
/// 0 to 2 open: where one of them is closed, an end of the pipe can take its number, and the child
/// loses that output or its input.
TAVO_API FILE* popen2(const std::string& command, const std::vector<std::string>& args,
                      const std::string& type, int& pid);

/// Closes `stream` (nothing when null) and waits for the child, also through interruptions by
/// signals.
///
/// Returns the raw wait status as waitpid(2) stores it (exit code 1 is 256, death by SIGKILL is 9;
/// decode with WIFEXITED() and so on), or -1 when waitpid() failed, as it does where SIGCHLD is
/// ignored.
TAVO_API int pclose2(FILE* stream, int pid);

/// A new zero-terminated copy of `s`, s.size() + 1 bytes. The caller releases it with delete[].
TAVO_API char* convert(const std::string& s);

namespace kvr {
namespace api {
namespace file {

/// Runs programs and collects their output.
///
/// Two encodings of a child's status are in use, deliberately: executeInsecure() gives the exit
/// code alone (0 to 255), execute() and executeNonblock() the raw wait status of waitpid(2), in
/// which exit code 3 reads 768.
///
/// Failure: a failing fork() ends the process with exit(1), except in executeInsecure(). A program
///          that cannot be executed gives the text "execvp: " and the reason as its output, and
///          exit code 127 (in executeInsecure() the shell complains on its standard error instead).
///          Where SIGCHLD is ignored, statuses are -1 (255 from executeInsecure()).
/// Signals: a handler that was installed without SA_RESTART and runs while output is awaited ends
///          the output of execute() and executeNonblock() there; executeInsecure() reads on.
/// Threads: no state; any thread. Output is read up to each NUL byte of a piece: it is meant for
///          text.
class TAVO_API NQ_Popen {
public:
    /// Runs a command line by the shell, through popen(3), and returns its standard output.
    /// `status` receives the exit code alone, 0 to 255. Throws std::runtime_error "popen() failed!"
    /// when popen(3) fails, and leaves `status` alone. Nothing is quoted: give no text from outside.
    /// After a read error it reads on, without end while the error stays.
    static std::string executeInsecure(const std::string& command, int& status);
    /// The same without the status.
    static std::string executeInsecure(const std::string& command);

    /// Runs a program without a shell and returns its standard output and standard error, merged in
    /// the order written. `status` receives the raw wait status, or -1 when waiting failed.
    static std::string execute(const std::string& command, const std::vector<std::string>& args,
                               int& status);
    /// The same without the status.
    static std::string execute(const std::string& command, const std::vector<std::string>& args);

    /// Runs a program without a shell on a detached thread of its own, and returns at once.
    ///
    /// The callbacks run on that thread, concurrently with the caller: `onStart` once with the
    /// process id (it may be empty), `onOutput` for each line of the merged output with its newline
    /// (a line longer than 254 bytes comes in pieces), `onExit` once with the raw wait status, or
    /// -1 when waiting failed. Trap: an empty `onOutput` or `onExit` ends the process when its turn
    /// comes, as does any exception of a callback. Throws std::system_error when no thread can be
    /// made. Nobody can wait for the thread: what the callbacks use must outlive `onExit`.
    static void executeNonblock(const std::string& command, const std::vector<std::string>& args,
                                std::function<void(const std::string&)> onOutput,
                                std::function<void(int)> onExit, std::function<void(int)> onStart);
    /// The same without `onStart`.
    static void executeNonblock(const std::string& command, const std::vector<std::string>& args,
                                std::function<void(const std::string&)> onOutput,
                                std::function<void(int)> onExit);
};

/// Lists directories and copies files.
class TAVO_API NQ_FileUtils {
public:
    /// Full paths (`path`, a slash, the name) of a directory's entries, in the directory's own
    /// order, without "." and "..".
    ///
    /// Flat, sub-directories are listed like files. Recursive, they are replaced by what is in
    /// them; links are listed, never followed, and so are directories on a file system that does not
    /// tell types (DT_UNKNOWN). A directory that cannot be opened contributes nothing but a perror()
    /// line "opendir: Path does not exist or could not be read.".
    static std::vector<std::string> getFilesFromDir(const std::string& path, bool recursive);
    /// The same, flat.
    static std::vector<std::string> getFilesFromDir(const std::string& path);

    /// The same as getFilesFromDir(path, true).
    static std::vector<std::string> getFilesFromDirRecursive(const std::string& path);

    /// Copies `source` over the beginning of `destination` by one sendfile(2) call (at most about 2
    /// GiB); a new file gets mode 0644 as reduced by the umask. Deliberate: an existing destination
    /// is not truncated, so a longer one keeps its tail. Returns what closing the destination
    /// returned: 0, or -1. No other failure is told.
    static int Linux_Copy(const char* source, const char* destination);
};

/// A holder of three texts, empty at first.
class TAVO_API NQ_Files {
public:
    /// Three empty texts.
    NQ_Files();
    ~NQ_Files();

    std::string first;  ///< the library makes nothing of the three
    std::string second; ///< likewise
    std::string third;  ///< likewise
};

/// Replaces a file's content by what is given to `<<`. The file is complete on disk only when the
/// writer is destroyed, which closes it. Failures are silent: where the file cannot be opened or
/// written, the text goes nowhere.
class TAVO_API FileWriter {
public:
    /// Creates the file, or empties it.
    explicit FileWriter(const std::string& path) : stream(path, std::ios::out) {}
    ~FileWriter();

    /// Appends the bytes of `text` as they are.
    FileWriter& operator<<(const std::string& text);

private:
    std::ofstream stream;
};

} // namespace file
} // namespace api
} // namespace kvr

#endif
