#include "Log.h"

namespace bench::floor {

Log::Log(const std::string& path) : file_(path, std::ios::out | std::ios::app) {}

void Log::line(const std::string& message, const std::string& level) {
    const std::lock_guard<std::mutex> lock(mutex_);
    write(message, level);
}

void Log::lines(const std::vector<std::string>& messages, const std::string& level) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& message : messages)
        write(message, level);
}

// Writes into the file's buffer directly. As with a stream, lines are lost once a write has failed.
void Log::write(const std::string& message, const std::string& level) {
    if (!file_.good())
        return;
    std::filebuf* buffer = file_.rdbuf();
    const auto put = [buffer](const std::string& text) {
        const auto length = static_cast<std::streamsize>(text.size());
        return buffer->sputn(text.data(), length) == length;
    };
    const bool written = put(level) && buffer->sputn(": ", 2) == 2 && put(message) &&
                         buffer->sputc('\n') == '\n' && buffer->pubsync() == 0;
    if (!written)
        file_.setstate(std::ios::badbit);
}

} // namespace bench::floor
