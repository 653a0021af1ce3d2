#include "kvr/api/StdInReader.h"

#include <kvr/api/NQ_Stream.h>

#include "detail/console.h"

StdInReader::StdInReader() = default;

StdInReader::~StdInReader() = default;

void StdInReader::loop(bool& stop) {
    while (!stop) {
        lastLine = NQ_Stream::forwardAndCopyInput(kvr::api::detail::in(), stop);
        if (!lastLine.empty())
            notify();
    }
}

const std::string& StdInReader::getLastLine() const { return lastLine; }
