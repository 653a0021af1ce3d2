#ifndef TAVO_TEST_OLDER_JSONC_JSON_OBJECT_H
#define TAVO_TEST_OLDER_JSONC_JSON_OBJECT_H

// The parts of json-c that NQ_JSON uses, declared as in releases before 0.13. There, lengths and
// indexes are int, nothing is const, and adding a member returns nothing. Only for compiling.

extern "C" {

typedef int json_bool;
struct json_object;
enum json_type { json_type_object = 4, json_type_array };
#define JSON_C_TO_STRING_PLAIN 0

json_object* json_object_get(json_object* value);
int json_object_put(json_object* value);
int json_object_is_type(json_object* value, json_type type);
const char* json_object_to_json_string_ext(json_object* value, int flags);

json_object* json_object_new_object(void);
void json_object_object_add(json_object* object, const char* key, json_object* value);
json_bool json_object_object_get_ex(json_object* object, const char* key, json_object** value);

json_object* json_object_new_array(void);
int json_object_array_length(json_object* array);
int json_object_array_add(json_object* array, json_object* value);
json_object* json_object_array_get_idx(json_object* array, int idx);

json_object* json_object_new_string(const char* text);
const char* json_object_get_string(json_object* value);
int json_object_get_int(json_object* value);
double json_object_get_double(json_object* value);

// The real releases keep members in a list, too. This one only has the same shape for its users.
struct OlderMember {
    char* key;
    json_object* value;
    OlderMember* next;
};
OlderMember* olderMembers(json_object* object);
#define json_object_object_foreach(object, key, value)                                             \
    char* key = nullptr;                                                                           \
    json_object* value = nullptr;                                                                  \
    for (OlderMember* member = olderMembers(object);                                               \
         member != nullptr && (key = member->key, value = member->value, true);                    \
         member = member->next)
}

#endif
