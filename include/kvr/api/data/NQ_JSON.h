#ifndef KVR_API_DATA_NQ_JSON_H
#define KVR_API_DATA_NQ_JSON_H

#include <kvr/api/export.h>

#include <map>
#include <string>
#include <vector>

#include <json-c/json_object.h>

namespace kvr {
namespace api {
namespace data {

/// A JSON value: a thin handle over a json-c tree.
///
/// Ownership: a handle owns one json-c reference to its tree. Deliberate: copies are shallow.
///            Copying, assigning, wrapping a `json_object*` and taking a member or an element all
///            share the tree. A change made through one handle is seen through every other. The
///            tree is freed with its last reference.
/// Failure:   a handle may hold no value (`getObj()` is null), for instance after a text that does
///            not parse. Readers return fixed defaults for a missing key. A null pointer or a JSON
///            null where text is expected raises std::logic_error: check the type first where a
///            null can occur. Builders given a container of the wrong type (or null) change
///            nothing.
/// Encoding:  bytes; nothing is converted or checked. Texts end at their first NUL byte (a JSON
///            "\u0000").
/// Threads:   no locking, and json-c's reference counts are not atomic. Handles that share a tree
///            are used by one thread at a time.
///
/// The default constructor and the builders throw std::bad_alloc when json-c has no memory. While
/// parsing and printing, json-c may then lose a member without reporting it.
///
/// The builders create texts and arrays. Create numbers, booleans and nulls with json-c's own
/// functions, and nested objects with a second handle:
/// @code
///     NQ_JSON limits;
///     limits.addObjtoObj(limits.getObj(), "max", json_object_new_int(40));
///     NQ_JSON report;
///     report.addKeyVal("name", "gateway-7");
///     report.addObjtoObj(report.getObj(), "load", json_object_new_double(0.25));
///     // Takes over a reference: `limits` keeps its own only because of json_object_get().
///     report.addObjtoObj(report.getObj(), "limits", json_object_get(limits.getObj()));
/// @endcode
class TAVO_API NQ_JSON {
public:
    /// A new empty object.
    NQ_JSON();

    /// Parses `text` with one json_tokener_parse_ex() call, up to json-c's default nesting depth
    /// (32).
    ///
    /// When that fails, "Unable to parse json" is printed on standard output and the handle holds
    /// no value. The call does not see the end of the text. What json-c completes only there fails
    /// too: a bare number, `true`, `false`, `null`, an empty text. Text after a complete value is
    /// ignored.
    NQ_JSON(const std::string& text);

    /// Shares `o`; the caller keeps its own reference. With a null `o`, the handle holds no value.
    NQ_JSON(const json_object* o);

    /// Shares the tree of `other`; the scratch handle is not copied.
    NQ_JSON(const NQ_JSON& other);

    /// Releases this handle's tree, then shares that of `other`; the scratch handle is unchanged.
    NQ_JSON& operator=(const NQ_JSON& other);

    /// Releases this handle's tree, not the scratch handle.
    virtual ~NQ_JSON();

    /// Parses a whole file like the string constructor. A file that cannot be read counts as an
    /// empty text.
    static NQ_JSON fromFile(const std::string& path);

    /// Text of a member as json_object_get_string() returns it: the characters of a string, the
    /// spaced JSON text of anything else. "" when the key is missing or this is not an object.
    /// Raises std::logic_error for a JSON null.
    std::string get_json_string(const std::string& key) const;

    /// A member as plain JSON text without blanks (a string keeps its quotes, a null reads "null");
    /// "" when the key is missing.
    std::string get_json_obj_as_string(const std::string& key) const;

    /// A member as json_object_get_int() converts it (strings are parsed, booleans become 0 or 1);
    /// 0 when the key is missing.
    int get_json_int(const std::string& key) const;

    /// A member as json_object_get_double() converts it; 0.0 when the key is missing.
    double get_json_double(const std::string& key) const;

    /// A handle that shares a member; it holds no value when the key is missing.
    NQ_JSON get_json_object(const std::string& key) const;

    /// Whether the object has the member; also true when its value is null.
    bool keyExists(const std::string& key) const;

    /// True when this handle holds an array.
    bool json_object_is_array();

    /// Number of elements of this array; 0 when this is not an array.
    int json_object_array_len() const;

    /// The same as json_object_array_len().
    int getArraySize() const;

    /// Number of elements of the array stored under `key`; 0 when there is none.
    int json_object_array_len(const char* key) const;

    /// Text of element `idx`, from 0, of this array. Raises std::logic_error for a null and when
    /// there is no such element.
    std::string get_json_string_arrayID(int idx) const;

    /// Text of element `idx` of the array stored under `key`. Raises std::logic_error for a null
    /// and when there is no such element.
    std::string get_json_string_arrayID(const char* key, int idx) const;

    /// A handle that shares element `idx` of this array; it holds no value when there is no such
    /// element.
    NQ_JSON getArrayObject(int idx) const;

    /// The tree itself, null when this handle holds no value. No reference is taken.
    json_object* getObj() const;

    /// The scratch handle, null until settempObj(). The class stores it for the caller; it never
    /// reads, copies or frees it.
    json_object* gettempObj() const;

    /// Sets the scratch handle. No reference is taken.
    void settempObj(json_object* o);

    /// The whole document as json_object_get_string() returns it: spaced JSON text, or the bare
    /// characters of a string. Raises std::logic_error when this handle holds no value.
    std::string asString() const;

    /// Appends a new string to an array. Deliberate: an array, despite the name.
    void addStringtoObj(json_object* array, const char* s);

    /// Appends `value` to `array`, which takes over the caller's reference. When `array` is not an
    /// array, the reference is released.
    void addObjtoArray(json_object* array, json_object* value);

    /// Stores `value` under `key`, replacing an existing member. `object` takes over the caller's
    /// reference to `value`. When `object` is not a JSON object, the reference is released.
    void addObjtoObj(json_object* object, const char* key, json_object* value);

    /// Stores a new string under `key`, replacing an existing member.
    void addKeyValtoObj(json_object* object, const char* key, const char* value);

    /// Stores a new string under `key` in this handle's own object. Both texts end at their first
    /// NUL byte.
    void addKeyVal(const std::string& key, const std::string& value);

    /// A new empty array. The caller owns the one reference: release it with json_object_put(), or
    /// pass it to a container.
    json_object* newArray();

    /// Replaces the content of `out` with the members' texts under their keys. Raises
    /// std::logic_error for a null member.
    void asMap(std::map<std::string, std::string>& out) const;

    /// Replaces the content of `out` with the keys of those members of `object` (not of this
    /// handle) whose text is empty, in order. Deliberate: prints every other member on standard
    /// output as one line key=text. When `object` is not a JSON object, `out` is cleared and
    /// nothing else happens. Raises std::logic_error for a null member.
    void emptyFields(std::vector<std::string>& out, json_object* object) const;

private:
    // The order is part of the binary interface.
    json_object* obj;
    json_object* tempObj;
};

} // namespace data
} // namespace api
} // namespace kvr

#endif
