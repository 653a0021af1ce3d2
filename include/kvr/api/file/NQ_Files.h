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
/// `command` names the program and is also its argument 0; `args` follow unchanged. With `type`
/// "r", the returned stream reads the program's standard output and standard error, merged. With
/// any other `type`, it writes to the program's standard input. `pid` receives the child's process
/// id. Release both with pclose2().
///
/// Ends the process: when fork() fails, after perror() "fork", with exit(1).
///
/// Trap: when the program cannot be executed, the forked copy of the caller prints perror()
///       "execvp" (into the pipe, for "r"). It then RETURNS from this call with `pid` 0 and a null
///       stream. A direct caller must end that copy before it runs any other code:
/// @code
///     FILE* stream = popen2(command, args, "r", pid);
///     if (pid == 0)
///         _exit(127);
/// @endcode
/// A null stream with another `pid` means that the pipe or its stream could not be created. The
/// child must still be waited for with pclose2().
///
/// Writing to a program that has ended raises SIGPIPE, which ends the process unless it is ignored.
///
/// The child inherits the caller's blocked signals and, for "r", its standard input. The pipe's
/// descriptors are not close-on-exec: a child started concurrently inherits them. Keep descriptors
/// 0 to 2 open. Where one is closed, an end of the pipe can take its number, and the child then
/// loses that output or its input.
///
/// A user who controls PATH chooses the program.
TAVO_API FILE* popen2(const std::string& command, const std::vector<std::string>& args,
                      const std::string& type, int& pid);

/// Closes `stream` (nothing when null) and waits for the child, also through interruptions by
/// signals.
///
/// Returns the raw wait status as waitpid(2) stores it: exit code 1 is 256, death by SIGKILL is 9.
/// Decode it with WIFEXITED() and the like. Returns -1 when waitpid() failed, as it does where
/// SIGCHLD is ignored.
TAVO_API int pclose2(FILE* stream, int pid);

/// A new zero-terminated copy of `s`, s.size() + 1 bytes. The caller releases it with delete[].
TAVO_API char* convert(const std::string& s);

namespace kvr {
namespace api {
namespace file {

/// Runs programs and collects their output.
///
/// Status:  two encodings, deliberately. executeInsecure() reports only the exit code (0 to 255).
///          execute() and executeNonblock() report the raw wait status of waitpid(2), in which exit
///          code 3 is 768.
/// Failure: a failing fork() ends the process with exit(1), except in executeInsecure(). For a
///          program that cannot be executed, the output is "execvp: " and the reason, and the exit
///          code is 127. In executeInsecure() the shell reports it on standard error instead. Where
///          SIGCHLD is ignored, statuses are -1 (255 from executeInsecure()).
/// Output:  all of it is kept in memory. A NUL byte drops the rest of its piece, which ends at the
///          newline or after 254 bytes (127 in executeInsecure()).
/// Waiting: until every process that holds the pipe has closed it, also a daemon that the program
///          has started. There is no time limit; timeout(1) in front of the program adds one.
/// Signals: programs inherit the caller's blocked signals. When a handler installed without
///          SA_RESTART runs, execute() and executeNonblock() stop reading. The rest of the output
///          is lost, and SIGPIPE ends the program when it writes more. executeInsecure() loses the
///          line that it has read in part, and continues.
/// Cost:    fork() copies the caller's page tables, so a start costs more in a larger process.
/// Threads: no state; any thread, concurrently.
class TAVO_API NQ_Popen {
public:
    /// Runs a command line in the shell, through popen(3), and returns its standard output.
    /// `status` receives only the exit code, 0 to 255. When popen(3) fails, throws
    /// std::runtime_error "popen() failed!" and leaves `status` unchanged. Nothing is quoted: never
    /// pass text from outside. After a read error the call reads again, as long as the error lasts.
    static std::string executeInsecure(const std::string& command, int& status);
    /// The same without the status.
    static std::string executeInsecure(const std::string& command);

    /// Runs a program without a shell and returns its standard output and standard error, merged in
    /// the order in which it wrote them. `status` receives the raw wait status, or -1 when waiting
    /// failed.
    static std::string execute(const std::string& command, const std::vector<std::string>& args,
                               int& status);
    /// The same without the status.
    static std::string execute(const std::string& command, const std::vector<std::string>& args);

    /// Runs a program without a shell on a separate, detached thread, and returns immediately.
    ///
    /// The callbacks run on that thread, concurrently with the caller:
    /// - `onStart`, which may be empty: once, with the process id;
    /// - `onOutput`: for each line of the merged output, newline included; a line longer than 254
    ///   bytes arrives in pieces;
    /// - `onExit`: once, with the raw wait status, or -1 when waiting failed.
    ///
    /// What the callbacks use must outlive `onExit`, as the thread cannot be joined. Trap: calling
    /// an empty `onOutput` or `onExit` ends the process, and so does any exception of a callback.
    /// Throws std::system_error when the thread cannot be created.
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
    /// A flat list names sub-directories like files. A recursive list has their contents instead.
    /// Symbolic links are listed and never followed. The same holds for directories on a file
    /// system that does not report types (DT_UNKNOWN). A directory that cannot be opened adds
    /// nothing; perror() prints "opendir: Path does not exist or could not be read." and the
    /// reason.
    static std::vector<std::string> getFilesFromDir(const std::string& path, bool recursive);
    /// The same, flat.
    static std::vector<std::string> getFilesFromDir(const std::string& path);

    /// The same as getFilesFromDir(path, true).
    static std::vector<std::string> getFilesFromDirRecursive(const std::string& path);

    /// Copies `source` over the beginning of `destination` with one sendfile(2) call, at most about
    /// 2 GiB. A new file gets mode 0644 as reduced by the umask. Deliberate: an existing
    /// destination is not truncated, so a longer one keeps its tail. Returns what close(2) of the
    /// destination returned: 0, or -1. No other failure is reported; on a full disk the result is 0
    /// too. Compare the sizes where it matters.
    static int Linux_Copy(const char* source, const char* destination);
};

/// Holds three texts, empty at first.
class TAVO_API NQ_Files {
public:
    /// Three empty texts.
    NQ_Files();
    ~NQ_Files();

    std::string first;  ///< for the caller; the library does not use it
    std::string second; ///< for the caller; the library does not use it
    std::string third;  ///< for the caller; the library does not use it
};

/// Replaces a file's content with the texts given to `<<`. The file is complete only after the
/// writer is destroyed, which closes it. Failures are silent: where the file cannot be opened or
/// written, also on a full disk, the text is lost.
class TAVO_API FileWriter {
public:
    /// Creates the file, or empties it.
    explicit FileWriter(const std::string& path) : stream(path, std::ios::out) {}
    ~FileWriter();

    /// Appends the bytes of `text` unchanged.
    FileWriter& operator<<(const std::string& text);

private:
    std::ofstream stream;
};

} // namespace file
} // namespace api
} // namespace kvr

#endif
