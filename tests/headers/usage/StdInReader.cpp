// Observers read the line where the reader keeps it.
#include <kvr/api/StdInReader.h>

class Listener : public kvr::api::iot::Observer<StdInReader> {
public:
    void update(StdInReader* reader) override { heard += reader->lastLine; }
    std::string heard;
};
