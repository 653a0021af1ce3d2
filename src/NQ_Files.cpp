#include "kvr/api/file/NQ_Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Pipe {
    int readEnd;
    int writeEnd;
};

/// The child's side of popen2(). Returns only when the program cannot be executed.
void runProgram(const std::string& command, const std::vector<std::string>& args, const Pipe& pipe,
                bool reading) {
    if (reading) {
        close(pipe.readEnd);
        dup2(pipe.writeEnd, STDOUT_FILENO);
        dup2(pipe.writeEnd, STDERR_FILENO);
        close(pipe.writeEnd);
    } else {
        close(pipe.writeEnd);
        dup2(pipe.readEnd, STDIN_FILENO);
        close(pipe.readEnd);
    }

    try {
        std::vector<char*> argv;
        argv.reserve(args.size() + 2);
        argv.push_back(const_cast<char*>(command.c_str()));
        for (const std::string& arg : args)
            argv.push_back(
                convert(arg)); // released by the exec, or by the end of this short-lived copy
        argv.push_back(nullptr);
        execvp(command.c_str(), argv.data());
        std::perror("execvp");
    } catch (const std::bad_alloc&) {
        // If this exception left the function, the caller's code would run in this copy.
        errno = ENOMEM;
        std::perror("execvp");
    }
}

/// popen2(), with its type already compared.
FILE* start(const std::string& command, const std::vector<std::string>& args, bool reading,
            int& pid) {
    int ends[2] = {-1, -1};
    std::ignore = pipe(ends); // shows as the null stream below
    const Pipe pipe = {ends[0], ends[1]};

    const pid_t child = fork();
    if (child == -1) {
        std::perror("fork");
        std::exit(1);
    }
    if (child == 0)
        runProgram(command, args, pipe, reading);

    // Deliberate: the copy whose program could not be executed continues here too. It has closed
    // both ends already.
    pid = child;
    close(reading ? pipe.writeEnd : pipe.readEnd);
    const int end = reading ? pipe.readEnd : pipe.writeEnd;
    if (child == 0 || end == -1)
        return nullptr; // explicit, as not every C library's fdopen() checks its descriptor
    FILE* stream = fdopen(end, reading ? "r" : "w");
    if (stream == nullptr)
        close(end); // otherwise a child that fills the pipe would never end
    return stream;
}

/// Starts a program for reading. A forked copy whose program could not be executed exits here,
/// before it runs the caller's code.
FILE* startReading(const std::string& command, const std::vector<std::string>& args, int& pid) {
    FILE* stream = start(command, args, true, pid);
    if (pid == 0)
        _exit(127);
    return stream;
}

/// A program that was started for reading. The destructor closes the stream, waits for the program
/// and stores its raw wait status, however the reading ends.
class StartedProgram {
public:
    StartedProgram(const std::string& command, const std::vector<std::string>& args, int& status)
        : pid_(0), stream_(startReading(command, args, pid_)), status_(status) {}
    ~StartedProgram() { status_ = pclose2(stream_, pid_); }
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;

    FILE* stream() const { return stream_; }

private:
    int pid_;
    FILE* stream_;
    int& status_;
};

/// Passes each piece of output, one fgets() of at most 254 bytes, to `take`.
template <class Taker>
void readPieces(FILE* stream, const Taker& take) {
    char buffer[255];
    while (stream != nullptr && std::fgets(buffer, sizeof buffer, stream) != nullptr)
        take(buffer);
}

} // namespace

FILE* popen2(const std::string& command, const std::vector<std::string>& args,
             const std::string& type, int& pid) {
    return start(command, args, type == "r", pid);
}

int pclose2(FILE* stream, int pid) {
    if (stream != nullptr)
        std::fclose(stream);
    int status = 0;
    while (waitpid(pid, &status, 0) == -1) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

char* convert(const std::string& s) {
    char* copy = new char[s.size() + 1];
    std::memcpy(copy, s.c_str(), s.size() + 1);
    return copy;
}

namespace kvr::api::file {

std::string NQ_Popen::executeInsecure(const std::string& command, int& status) {
    std::string output;
    const std::shared_ptr<FILE> stream(popen(command.c_str(), "r"), [&status](FILE* opened) {
        if (opened != nullptr)
            status = (pclose(opened) >> 8) & 0xFF;
    });
    if (stream == nullptr)
        throw std::runtime_error("popen() failed!");
    char buffer[128];
    while (!std::feof(stream.get())) {
        if (std::fgets(buffer, sizeof buffer, stream.get()) != nullptr)
            output += buffer;
    }
    return output;
}

std::string NQ_Popen::executeInsecure(const std::string& command) {
    int dropped = 0;
    return executeInsecure(command, dropped);
}

std::string NQ_Popen::execute(const std::string& command, const std::vector<std::string>& args,
                              int& status) {
    std::string output;
    const StartedProgram program(command, args, status);
    readPieces(program.stream(), [&output](const char* piece) { output += piece; });
    return output;
}

std::string NQ_Popen::execute(const std::string& command, const std::vector<std::string>& args) {
    int dropped = 0;
    return execute(command, args, dropped);
}

void NQ_Popen::executeNonblock(const std::string& command, const std::vector<std::string>& args,
                               std::function<void(const std::string&)> onOutput,
                               std::function<void(int)> onExit, std::function<void(int)> onStart) {
    std::thread([command, args, onOutput = std::move(onOutput), onExit = std::move(onExit),
                 onStart = std::move(onStart)] {
        int pid = 0;
        FILE* stream = startReading(command, args, pid);
        if (onStart)
            onStart(pid);
        readPieces(stream, onOutput);
        onExit(pclose2(stream, pid));
    }).detach();
}

void NQ_Popen::executeNonblock(const std::string& command, const std::vector<std::string>& args,
                               std::function<void(const std::string&)> onOutput,
                               std::function<void(int)> onExit) {
    executeNonblock(command, args, std::move(onOutput), std::move(onExit),
                    std::function<void(int)>());
}

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool isSelfOrParent(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

void appendEntries(const std::string& path, bool recursive, std::vector<std::string>& files) {
    const Directory directory(opendir(path.c_str()));
    if (directory == nullptr) {
        std::perror("opendir: Path does not exist or could not be read.");
        return;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (isSelfOrParent(entry->d_name))
            continue;
        const std::size_t length = std::strlen(entry->d_name);
        std::string file;
        file.reserve(path.size() + 1 + length);
        file.append(path).append(1, '/').append(entry->d_name, length);
        if (recursive && entry->d_type == DT_DIR)
            appendEntries(file, true, files);
        else
            files.push_back(std::move(file));
    }
}

} // namespace

std::vector<std::string> NQ_FileUtils::getFilesFromDir(const std::string& path, bool recursive) {
    std::vector<std::string> files;
    appendEntries(path, recursive, files);
    return files;
}

std::vector<std::string> NQ_FileUtils::getFilesFromDir(const std::string& path) {
    return getFilesFromDir(path, false);
}

std::vector<std::string> NQ_FileUtils::getFilesFromDirRecursive(const std::string& path) {
    return getFilesFromDir(path, true);
}

int NQ_FileUtils::Linux_Copy(const char* source, const char* destination) {
    // Deliberate: nothing is checked. Calls on -1 fail by themselves, and only the last result is
    // the caller's.
    const int from = open(source, O_RDONLY);
    const int to = open(destination, O_WRONLY | O_CREAT, 0644);
    struct stat status = {};
    (void)fstat(from, &status);
    // One call moves no more than this anyway; larger sizes do not fit into every size_t.
    constexpr off_t kMost = 0x7ffff000;
    std::ignore = sendfile(to, from, nullptr, static_cast<size_t>(std::min(status.st_size, kMost)));
    (void)close(from);
    return close(to);
}

NQ_Files::NQ_Files() = default;

NQ_Files::~NQ_Files() = default;

FileWriter::~FileWriter() = default;

FileWriter& FileWriter::operator<<(const std::string& text) {
    stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    return *this;
}

} // namespace kvr::api::file
