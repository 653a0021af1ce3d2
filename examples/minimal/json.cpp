// Builds a JSON document with nested values and numbers, and walks it.

#include <kvr/api/data/NQ_JSON.h>

#include <iostream>

#include <json-c/json_object.h>

using kvr::api::data::NQ_JSON;

int main() {
    NQ_JSON report; // an empty object
    report.addKeyVal("name", "gateway-7");
    // The class builds texts and arrays. Create everything else with json-c; addObjtoObj() takes
    // over the reference.
    report.addObjtoObj(report.getObj(), "uptime", json_object_new_int(3600));
    report.addObjtoObj(report.getObj(), "load", json_object_new_double(0.25));
    json_object* ports = report.newArray();
    report.addStringtoObj(ports, "eth0");
    report.addStringtoObj(ports, "wwan0");
    report.addObjtoObj(report.getObj(), "ports", ports);
    NQ_JSON modem;
    modem.addKeyVal("operator", "Example");
    // A tree that another handle keeps using needs one more reference.
    report.addObjtoObj(report.getObj(), "modem", json_object_get(modem.getObj()));
    std::cout << report.asString() << '\n';

    const NQ_JSON read(report.asString());
    std::cout << read.get_json_int("uptime") / 60 << " minutes, load "
              << read.get_json_double("load") << ", "
              << read.get_json_object("modem").get_json_string("operator") << '\n';
    for (int i = 0; i < read.json_object_array_len("ports"); ++i)
        std::cout << "port " << read.get_json_string_arrayID("ports", i) << '\n';
    // A missing number reads as 0. Check the key and the type where that matters.
    const NQ_JSON load = read.get_json_object("load");
    if (read.keyExists("load") && json_object_is_type(load.getObj(), json_type_double) != 0)
        std::cout << "load is a number\n";
}
