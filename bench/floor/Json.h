#ifndef TAVO_BENCH_FLOOR_JSON_H
#define TAVO_BENCH_FLOOR_JSON_H

#include <map>
#include <string>
#include <vector>

struct json_object;

namespace bench::floor {

/// A handle over a json-c tree, with the interface of NQ_JSON.
class Json {
public:
    Json();
    explicit Json(const std::string& text);
    explicit Json(json_object* shared);
    Json(const Json& other) = delete;
    Json& operator=(const Json&) = delete;
    virtual ~Json();

    std::string text(const std::string& key) const;
    int number(const std::string& key) const;
    Json member(const std::string& key) const;
    std::string print() const;
    void add(const std::string& key, const std::string& value);
    json_object* newArray();
    void addText(json_object* array, const char* text);
    void addObject(json_object* object, const char* key, json_object* value);
    void flatten(std::map<std::string, std::string>& out) const;
    void emptyFields(std::vector<std::string>& out, json_object* object) const;
    json_object* tree() const;

private:
    json_object* tree_;
    [[maybe_unused]] json_object* scratch_; // NQ_JSON has this field, too
};

} // namespace bench::floor

#endif
