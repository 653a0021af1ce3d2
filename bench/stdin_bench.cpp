#include <kvr/api/StdInReader.h>

#include "Child.h"
#include "floor/LineReader.h"
#include "measure.h"

#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

namespace bench {
namespace {

int lines() { return counting() ? 5000 : 100000; }

/// Replaces standard input by a pipe, into which another process writes all lines.
class Input {
public:
    Input() {
        int ends[2];
        if (pipe(ends) != 0)
            std::abort();
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        writer_ = std::make_unique<Child>([end = ends[1]] {
            std::string text;
            for (int i = 0; i < lines(); ++i)
                text += "set temperature 21.5 for room " + std::to_string(i) + "\n";
            for (std::size_t at = 0; at < text.size();) {
                const ssize_t written = write(end, text.data() + at, text.size() - at);
                if (written <= 0)
                    std::abort();
                at += static_cast<std::size_t>(written);
            }
        });
        close(ends[1]);
    }

private:
    std::unique_ptr<Child> writer_;
};

/// Sets the stop flag of a reader at the last line.
template <class Reader>
class Count {
public:
    bool stop = false;

protected:
    void lineRead() { stop = ++lines_ % lines() == 0; }

private:
    int lines_ = 0;
};

class LibraryCount : public kvr::api::iot::Observer<StdInReader>, public Count<StdInReader> {
public:
    void update(StdInReader*) override { lineRead(); }
};

class FloorCount : public floor::LineListener, public Count<floor::LineReader> {
public:
    void received(floor::LineReader*) override { lineRead(); }
};

} // namespace

void addStandardInput() {
    const std::string operation = "100,000 lines from standard input";
    const Repeat repeat = {1, 1};
    addPrepared(
        operation, kLibrary,
        [] {
            auto input = std::make_shared<std::unique_ptr<Input>>();
            auto reader = std::make_shared<StdInReader>();
            auto count = std::make_shared<LibraryCount>();
            reader->attach(count.get());
            return Steps{[input, count] {
                             *input = std::make_unique<Input>();
                             count->stop = false;
                         },
                         [reader, count] { reader->loop(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, kFloor,
        [] {
            auto input = std::make_shared<std::unique_ptr<Input>>();
            auto count = std::make_shared<FloorCount>();
            auto reader = std::make_shared<floor::LineReader>(count.get());
            return Steps{[input, count] {
                             *input = std::make_unique<Input>();
                             count->stop = false;
                         },
                         [reader, count] { reader->loop(count->stop); }};
        },
        repeat);
    addPrepared(
        operation, "std::getline",
        [] {
            auto input = std::make_shared<std::unique_ptr<Input>>();
            return Steps{[input] { *input = std::make_unique<Input>(); },
                         [] {
                             std::string line;
                             for (int i = 0; i < lines(); ++i) {
                                 std::getline(std::cin, line);
                                 std::cout << line << '\n';
                             }
                         }};
        },
        repeat);
}

} // namespace bench
