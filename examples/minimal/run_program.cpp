// Runs programs in three ways: without a shell, on another thread, and in the shell.

#include <kvr/api/file/NQ_Files.h>

#include <future>
#include <iostream>
#include <string>

#include <sys/wait.h>

using kvr::api::file::NQ_Popen;

int main() {
    // Arguments reach the program unchanged: use this for text from outside.
    int status = 0;
    const std::string out = NQ_Popen::execute("echo", {"$HOME;", "a b"}, status);
    std::cout << out << "raw wait status " << status << '\n';

    // The callbacks run on another thread. What they use must outlive onExit.
    std::promise<int> ended;
    NQ_Popen::executeNonblock(
        "sh", {"-c", "echo working; exit 3"},
        [](const std::string& line) { std::cout << "line: " << line; },
        [&](int result) { ended.set_value(result); });
    const int result = ended.get_future().get();
    std::cout << "exit code " << WEXITSTATUS(result) << '\n';

    // The shell's wildcards and pipes, for fixed texts only. The status is only the exit code.
    std::cout << NQ_Popen::executeInsecure("printf 'b\\na\\n' | sort; exit 3", status);
    std::cout << "exit code " << status << '\n';
}
