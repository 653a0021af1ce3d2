#ifndef TAVO_TESTS_JSON_LIFETIME_H
#define TAVO_TESTS_JSON_LIFETIME_H

#include <memory>

#include <json-c/json.h>

namespace support {

/// Records when json-c frees a value, that is, when its last reference is dropped.
class JsonLifetime {
public:
    explicit JsonLifetime(json_object* value) {
        json_object_set_userdata(value, new std::shared_ptr<bool>(over_), &ended);
    }
    JsonLifetime(const JsonLifetime&) = delete;
    JsonLifetime& operator=(const JsonLifetime&) = delete;

    bool over() const { return *over_; }

private:
    static void ended(json_object*, void* data) {
        const std::unique_ptr<std::shared_ptr<bool>> over(
            static_cast<std::shared_ptr<bool>*>(data));
        **over = true;
    }

    std::shared_ptr<bool> over_ = std::make_shared<bool>(false); // may outlive this object
};

} // namespace support

#endif
