// Observers read the line from the reader's member.
#include <kvr/api/StdInReader.h>

class Listener : public kvr::api::iot::Observer<StdInReader> {
public:
    void update(StdInReader* reader) override { lines += reader->lastLine; }
    std::string lines;
};
