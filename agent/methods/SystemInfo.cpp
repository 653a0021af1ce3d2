#include "methods/SystemInfo.h"

#include <kvr/api/sys/NQ_System.h>

#include <stdexcept>

namespace agent {
namespace {

using kvr::api::sys::NQ_System;

/// Null when the boot environment has no serial number or cannot be read.
Json serialNumber() {
    try {
        return newText(NQ_System::getDeviceSerialNumber());
    } catch (const std::out_of_range&) {
        return nullptr;
    }
}

} // namespace

SystemInfo::SystemInfo()
    : Method("system.info",
             "reports the agent's name and directory, serial number, modem, companion "
             "applications and serial port of the gateway") {}

Json SystemInfo::run(const Params& params) {
    params.allowOnly({});
    Json applications = newObject();
    put(applications, "modbus2mqtt", newBool(NQ_System::hasModbus2MqttApp()));
    put(applications, "vexlor2red", newBool(NQ_System::hasVexlor2RedApp()));
    put(applications, "vexlor", newBool(NQ_System::hasVexlorApp()));
    put(applications, "nodered", newBool(NQ_System::hasNodeRedApp()));
    Json port = newObject();
    put(port, "id", newText(NQ_System::getPortId()));
    put(port, "name", newText(NQ_System::getPortIdName()));

    Json result = newObject();
    put(result, "name", newText(NQ_System::getAppName()));
    put(result, "directory", newText(NQ_System::getAppDir()));
    put(result, "serial_number", serialNumber());
    put(result, "cellular_modem", newBool(NQ_System::hasCellularModem()));
    put(result, "applications", std::move(applications));
    put(result, "port", std::move(port));
    return result;
}

} // namespace agent
