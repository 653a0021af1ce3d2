#ifndef TAVO_BENCH_FLOOR_LINEREADER_H
#define TAVO_BENCH_FLOOR_LINEREADER_H

#include <string>

namespace bench::floor {

class LineReader;

class LineListener {
public:
    virtual ~LineListener();
    virtual void received(LineReader* reader) = 0;
};

/// Waits for each line of standard input, prints it, and announces it.
class LineReader {
public:
    explicit LineReader(LineListener* listener);
    void loop(bool& stop);

    std::string lastLine;

private:
    static std::string readLine(const bool& stop);

    LineListener* listener_;
};

} // namespace bench::floor

#endif
