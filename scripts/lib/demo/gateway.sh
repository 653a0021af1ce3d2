# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Requests about the gateway itself: its programs, files and signals.

part "The gateway"

step "Describe the methods"
where client "tavo-rpc demo 06-describe.json" \
    agent "system.describe" \
    library "CallbackMethod: GetName, GetDescription" \
    tool "" \
    file ""
request 06-describe.json
response_is <<'END'
{"jsonrpc":"2.0","id":6,"result":{"methods":[{"name":"system.describe","description":"lists all methods with their descriptions"},{"name":"uci.get","description":"reads a section of the configuration: config, section"},{"name":"uci.apply","description":"changes, creates or deletes (\"values\": {}) a section of the configuration: config, section, type, values, expect, restart"},{"name":"config.place","description":"places a file for an application or one of its agents: application, agent, directory, file, content, base64, restart"},{"name":"process.run","description":"runs one of the allowed programs: command, arguments"},{"name":"system.info","description":"reports the agent's name and directory, serial number, modem, companion applications and serial port of the gateway"},{"name":"gpio.get","description":"reads a signal: name (out0, bin0, bin1, temperature, voltage)"},{"name":"gpio.set","description":"sets a signal: name (led_sim, led_wan, led_usr, led_pwr, out0), value (0 or 1)"}]}}
END
configuration_is_unchanged
service_calls_are < <(nothing)
log_is_done 6 system.describe 71

step "Run a program" "The answer has its output, the raw wait status (exit code 1 is 256) and the exit code."
where client "tavo-rpc demo 09-program.json" \
    agent "process.run" \
    library "NQ_Popen: executeNonblock" \
    tool "uci get network.lan.nothing" \
    file "/etc/config/network"
request 09-program.json
response_is <<'END'
{"jsonrpc":"2.0","id":9,"result":{"output":"uci: Entry not found\n","truncated":false,"raw_status":256,"exit_code":1,"signal":null}}
END
log_is_done 9 process.run 157

step "Read the gateway's serial number, modem and applications" "The serial number comes from the boot environment."
where client "tavo-rpc demo 11-info.json" \
    agent "system.info" \
    library "NQ_System: getDeviceSerialNumber and others" \
    tool "fw_printenv" \
    file "the boot environment, /opt/apps"
request 11-info.json
response_is <<END
{"jsonrpc":"2.0","id":11,"result":{"name":"tavo-agent","directory":"$(cd "$agent_bin" && pwd -P)","serial_number":"GW0123456789","cellular_modem":false,"applications":{"modbus2mqtt":true,"vexlor2red":false,"vexlor":false,"nodered":true},"port":{"id":"2","name":"RS232"}}}
END
log_is_done 11 system.info 68

step "Place an application's configuration file" "The application's script restarts it."
where client "tavo-rpc demo 12-place-application.json" \
    agent "config.place" \
    library "NQ_Config: applyConfig, notifyAppRestart" \
    tool "/opt/apps/ZEQ/bin/run.sh restart" \
    file "/opt/apps/ZEQ/cfg/ZEQ.json"
request 12-place-application.json
response_is <<'END'
{"jsonrpc":"2.0","id":12,"result":{"file":"/opt/apps/ZEQ/cfg/ZEQ.json","bytes":16,"agent_stopped":false,"application_restarted":true}}
END
compare "/opt/apps/ZEQ/cfg/ZEQ.json" "$(cat /opt/apps/ZEQ/cfg/ZEQ.json)" <<'END'
{"portID": "1"}
END
service_calls_are <<'END'
ZEQ/bin/run.sh restart
END
log_is_done 12 config.place 260

step "Place a file of an application's agent" "It arrives as base64. A script stops the agent, and the agent's supervisor restarts it."
where client "tavo-rpc demo 13-place-agent.json" \
    agent "config.place" \
    library "NQ_Config: applyConfig, stopAgent; NQ_Base64" \
    tool "stopAgent.sh meter" \
    file "/opt/apps/ZEQ/agents/meter/cfg/token"
request 13-place-agent.json
response_is <<'END'
{"jsonrpc":"2.0","id":13,"result":{"file":"/opt/apps/ZEQ/agents/meter/cfg/token","bytes":13,"agent_stopped":true,"application_restarted":false}}
END
compare "/opt/apps/ZEQ/agents/meter/cfg/token" "$(cat /opt/apps/ZEQ/agents/meter/cfg/token)" <<'END'
secret token
END
service_calls_are <<'END'
stopAgent.sh meter
END
log_is_done 13 config.place 306

step "Switch an LED on"
where client "tavo-rpc demo 14-led.json" \
    agent "gpio.set" \
    library "NQ_Gpio" \
    tool "" \
    file "/dev/gpio"
request 14-led.json
response_is <<'END'
{"jsonrpc":"2.0","id":14,"result":{"name":"led_usr","value":1}}
END
compare "state of the board" "$(grep '^led_' /tmp/gpio.state)" <<'END'
led_sim 0
led_wan 0
led_usr 1
led_pwr 1
END
log_is_done 14 gpio.set 108

step "Read the board's temperature"
where client "tavo-rpc demo 15-temperature.json" \
    agent "gpio.get" \
    library "NQ_Gpio" \
    tool "" \
    file "/dev/gpio"
request 15-temperature.json
response_is <<'END'
{"jsonrpc":"2.0","id":15,"result":{"name":"temperature","value":41}}
END
log_is_done 15 gpio.get 100
