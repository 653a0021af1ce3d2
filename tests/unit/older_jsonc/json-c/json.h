#ifndef TAVO_TEST_OLDER_JSONC_JSON_H
#define TAVO_TEST_OLDER_JSONC_JSON_H

#include <json-c/json_object.h>

extern "C" {

struct json_tokener;
enum json_tokener_error { json_tokener_success };

json_tokener* json_tokener_new(void);
void json_tokener_free(json_tokener* tokener);
json_tokener_error json_tokener_get_error(json_tokener* tokener);
json_object* json_tokener_parse_ex(json_tokener* tokener, const char* text, int length);
}

#endif
