// Any bytes that a supervising process writes to a program's standard input.
//
// An even first byte makes them arrive all together, an odd one line by line.
#include <kvr/api/StdInReader.h>

#include "fuzzing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

int channel = -1; // the supervisor's end

void supervisorWrites(const std::string& text) {
    fuzzing::require(write(channel, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                     "the pipe has room");
}

/// The bytes in pieces, each of which ends with a line that is not empty, and those lines.
struct Pieces {
    std::vector<std::string> pieces;
    std::vector<std::string> lines;

    explicit Pieces(const std::string& stream) {
        std::string piece;
        for (std::size_t start = 0; start < stream.size();) {
            const std::size_t end = stream.find('\n', start);
            piece += stream.substr(start, end + 1 - start);
            if (end > start) {
                lines.push_back(stream.substr(start, end - start));
                pieces.push_back(piece);
                piece.clear();
            }
            start = end + 1;
        }
    }
};

/// Compares what is announced with what was written. Stops the reader after the last line, since it
/// never ends at the end of standard input.
class LineObserver : public kvr::api::iot::Observer<StdInReader> {
public:
    LineObserver(const Pieces& written, bool together) : written_(written), together_(together) {
        if (together_) {
            std::string all;
            for (const std::string& piece : written_.pieces)
                all += piece;
            supervisorWrites(all);
        } else {
            supervisorWrites(written_.pieces.front());
        }
    }

    void update(StdInReader* reader) override {
        fuzzing::require(!stop, "nothing is announced after the stop");
        fuzzing::require(reader->getLastLine() == written_.lines[announced_],
                         "every line is announced, in order");
        ++announced_;
        stop = announced_ == written_.lines.size();
        if (!stop && !together_)
            supervisorWrites(written_.pieces[announced_]);
    }

    bool stop = false;

private:
    const Pieces& written_;
    const bool together_;
    std::size_t announced_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzzing::silenceOutput();
    int ends[2];
    fuzzing::require(pipe(ends) == 0 && dup2(ends[0], STDIN_FILENO) == STDIN_FILENO, "pipes work");
    channel = ends[1];
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    const Pieces written(stream + "\nthe last line\n");
    StdInReader reader;
    LineObserver observer(written, data[0] % 2 == 0);
    reader.attach(&observer);
    reader.loop(observer.stop);
    return 0;
}
