#ifndef TAVO_AGENT_ANSWER_MEMORY_H
#define TAVO_AGENT_ANSWER_MEMORY_H

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>

namespace agent {

/// Keeps the latest responses to remote senders. A message can arrive twice, and a sender repeats a
/// request when it has missed the response. The agent answers such a request again, but does not
/// run it again.
class AnswerMemory {
public:
    static constexpr std::size_t kMost = 64;
    /// Limit for all responses together. Above it, the memory drops the texts of the oldest, and
    /// still knows their requests.
    static constexpr std::size_t kMostBytes = 2 * 1024 * 1024;

    /// Returns the response to the request `id` (as JSON) of `sender`. Its text is empty when it
    /// was dropped. Null when the request is not among the latest.
    const std::string* find(const std::string& sender, const std::string& id) const {
        const auto found =
            std::find_if(answers_.begin(), answers_.end(), [&](const Answer& answer) {
                return answer.sender == sender && answer.id == id;
            });
        return found == answers_.end() ? nullptr : &found->response;
    }

    void keep(const std::string& sender, const std::string& id, const std::string& response) {
        answers_.push_back({sender, id, response});
        bytes_ += response.size();
        if (answers_.size() > kMost) {
            bytes_ -= answers_.front().response.size();
            answers_.pop_front();
        }
        for (auto oldest = answers_.begin(); bytes_ > kMostBytes; ++oldest) {
            bytes_ -= oldest->response.size();
            oldest->response = std::string(); // frees the memory
        }
    }

private:
    struct Answer {
        std::string sender;
        std::string id;
        std::string response;
    };
    std::deque<Answer> answers_;
    std::size_t bytes_ = 0;
};

} // namespace agent

#endif
