# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Requests that change the gateway's configuration.

part "The configuration"

step "Change the LAN address" \
    "The library deletes an option whose value is empty. It restarts the service because the request" \
    "says so."
where client "tavo-rpc demo 01-lan-address.json" \
    agent "uci.apply: checks the names and values, reads the section back" \
    library "NQ_UBUS: checkConfig, applyConfig, restartService" \
    tool "ubus call uci delete and set; uci commit; /etc/init.d/network" \
    file "/etc/config/network"
request 01-lan-address.json
compare "exit status of tavo-rpc" "$status" <<<0
response_is <<'END'
{"jsonrpc":"2.0","id":1,"result":{"config":"network","section":"lan","existed":true,"exists":true,"values":{"device":"br-lan","proto":"static","ipaddr":"192.168.7.1","netmask":"255.255.255.0","ip6assign":"60","dns":["1.1.1.1","8.8.8.8"]},"restarted":true}}
END
commands_are <<'END'
ubus call uci delete '{ "config": "network", "section": "lan", "options": [ "gateway" ] }'; uci commit network
ubus call uci set '{"config":"network","section":"lan","type":"interface","values":{"ipaddr":"192.168.7.1","gateway":""}}'; uci commit network
/etc/init.d/network restart
END
configuration_change_is network <<'END'
-	option ipaddr '192.168.1.1'
+	option ipaddr '192.168.7.1'
-	option gateway '192.168.1.254'
END
service_calls_are <<'END'
network restart
END
log_is_done 1 uci.apply 270

step "Create a section that does not exist" "A guest network. This request restarts no service."
where client "tavo-rpc demo 02-guest-create.json" \
    agent "uci.apply" \
    library "NQ_UBUS: checkConfig, applyConfig" \
    tool "ubus call uci get, add and set; uci commit" \
    file "/etc/config/network"
request 02-guest-create.json
response_is <<'END'
{"jsonrpc":"2.0","id":2,"result":{"config":"network","section":"guest","existed":false,"exists":true,"values":{"proto":"static","ipaddr":"192.168.50.1","dns":["1.1.1.1","9.9.9.9"]},"restarted":false}}
END
commands_are <<'END'
ubus call uci add '{ "config": "network", "name": "guest", "type": "interface" }'; uci commit network
ubus call uci set '{"config":"network","section":"guest","type":"interface","values":{"proto":"static","ipaddr":"192.168.50.1","dns":["1.1.1.1","9.9.9.9"]}}'; uci commit network
END
configuration_change_is network <<'END'
+config interface 'guest'
+	option proto 'static'
+	option ipaddr '192.168.50.1'
+	list dns '1.1.1.1'
+	list dns '9.9.9.9'
+
END
service_calls_are < <(nothing)
log_is_done 2 uci.apply 283

step "Delete it again" "A request with no values at all deletes the whole section."
where client "tavo-rpc demo 03-guest-delete.json" \
    agent "uci.apply" \
    library "NQ_UBUS: applyConfig" \
    tool "ubus call uci delete; uci commit" \
    file "/etc/config/network"
request 03-guest-delete.json
response_is <<'END'
{"jsonrpc":"2.0","id":3,"result":{"config":"network","section":"guest","existed":true,"exists":false,"restarted":false}}
END
commands_are <<'END'
ubus call uci delete '{ "config": "network", "section": "guest" }'; uci commit network
END
configuration_change_is network <<'END'
-config interface 'guest'
-	option proto 'static'
-	option ipaddr '192.168.50.1'
-	list dns '1.1.1.1'
-	list dns '9.9.9.9'
-
END
service_calls_are < <(nothing)
log_is_done 3 uci.apply 150

step "Change DHCP" "The package dhcp belongs to the service dnsmasq."
where client "tavo-rpc demo 04-dhcp.json" \
    agent "uci.apply" \
    library "NQ_UBUS: checkConfig, applyConfig, restartService" \
    tool "ubus call uci set; uci commit; /etc/init.d/dnsmasq" \
    file "/etc/config/dhcp"
request 04-dhcp.json
response_is <<'END'
{"jsonrpc":"2.0","id":4,"result":{"config":"dhcp","section":"lan","existed":true,"exists":true,"values":{"interface":"lan","start":"100","limit":"50","leasetime":"2h","dhcpv4":"server","dhcpv6":"server","ra":"server"},"restarted":true}}
END
configuration_change_is dhcp <<'END'
-	option limit '150'
-	option leasetime '12h'
+	option limit '50'
+	option leasetime '2h'
END
service_calls_are <<'END'
dnsmasq restart
END
log_is_done 4 uci.apply 232

step "Change the time servers" "A section called ntp belongs to the service sysntpd. Lists are arrays."
where client "tavo-rpc demo 05-ntp.json" \
    agent "uci.apply" \
    library "NQ_UBUS: checkConfig, applyConfig, restartService" \
    tool "ubus call uci set; uci commit; /etc/init.d/sysntpd" \
    file "/etc/config/system"
request 05-ntp.json
response_is <<'END'
{"jsonrpc":"2.0","id":5,"result":{"config":"system","section":"ntp","existed":true,"exists":true,"values":{"enabled":"1","enable_server":"0","server":["time.example.net"]},"restarted":true}}
END
configuration_change_is system <<'END'
-	list server '0.pool.example.net'
-	list server '1.pool.example.net'
+	list server 'time.example.net'
END
service_calls_are <<'END'
sysntpd restart
END
log_is_done 5 uci.apply 232

step "Read a section that has no name" "The request names it by its position among the sections of its type."
where client "tavo-rpc demo 16-forwarding-get.json" \
    agent "uci.get" \
    library "NQ_UBUS: getSystemCfg" \
    tool "ubus call uci get" \
    file "/etc/config/firewall"
request 16-forwarding-get.json
response_is <<'END'
{"jsonrpc":"2.0","id":16,"result":{"config":"firewall","section":"@forwarding[0]","exists":true,"name":"cfg04ad58","type":"forwarding","anonymous":true,"values":{"src":"lan","dest":"wan"}}}
END
configuration_is_unchanged

step "Delete that section" \
    "Another section may have moved to this position, so the request says what it expects there." \
    "Sending it twice does no harm: the second one fails."
where client "tavo-rpc demo 17-forwarding-delete.json, twice" \
    agent "uci.apply: compares the section with \"expect\"" \
    library "NQ_UBUS: applyConfig, restartService" \
    tool "ubus call uci delete; uci commit; /etc/init.d/firewall" \
    file "/etc/config/firewall"
request 17-forwarding-delete.json
response_is <<'END'
{"jsonrpc":"2.0","id":17,"result":{"config":"firewall","section":"@forwarding[0]","existed":true,"exists":false,"restarted":true}}
END
configuration_change_is firewall <<'END'
-config forwarding
-	option src 'lan'
-	option dest 'wan'
-
END
service_calls_are <<'END'
firewall restart
END
request 17-forwarding-delete.json
compare "exit status of tavo-rpc" "$status" <<<1
response_is <<'END'
{"jsonrpc":"2.0","id":17,"error":{"code":-32000,"message":"Failed","data":"firewall/@forwarding[0] does not exist"}}
END
configuration_is_unchanged
service_calls_are < <(nothing)
