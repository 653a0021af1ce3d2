#ifndef TAVO_AGENT_RESPONSE_CACHE_H
#define TAVO_AGENT_RESPONSE_CACHE_H

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>

namespace agent {

/// Keeps the latest responses to remote senders. A message can arrive twice, and a sender repeats a
/// request when it has missed the response. The agent answers such a request again, but does not
/// run it again.
class ResponseCache {
public:
    static constexpr std::size_t kMaxResponses = 64;
    /// Limit for all responses together. Above it, the cache drops the texts of the oldest, and
    /// still knows their requests.
    static constexpr std::size_t kMaxBytes = 2 * 1024 * 1024;

    /// Returns the response to the request `id` (as JSON) of `sender`. Its text is empty when it
    /// was dropped. Null when the request is not among the latest.
    const std::string* find(const std::string& sender, const std::string& id) const {
        const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
            return entry.sender == sender && entry.id == id;
        });
        return found == entries_.end() ? nullptr : &found->response;
    }

    void keep(const std::string& sender, const std::string& id, const std::string& response) {
        entries_.push_back({sender, id, response});
        bytes_ += response.size();
        if (entries_.size() > kMaxResponses) {
            bytes_ -= entries_.front().response.size();
            entries_.pop_front();
        }
        for (auto oldest = entries_.begin(); bytes_ > kMaxBytes; ++oldest) {
            bytes_ -= oldest->response.size();
            oldest->response = std::string(); // frees its memory
        }
    }

private:
    struct Entry {
        std::string sender;
        std::string id;
        std::string response;
    };
    std::deque<Entry> entries_;
    std::size_t bytes_ = 0;
};

} // namespace agent

#endif
