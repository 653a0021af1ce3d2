# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# Requests that the agent refuses.

part "What the agent refuses"

step "A malformed request" \
    "Its text is incomplete, so tavo-rpc cannot ask for an answer. The agent prints an error response" \
    "and continues."
where client "tavo-rpc --no-answer demo 07-malformed.json" \
    agent "refuses it: no JSON" \
    library "" tool "" file ""
unanswered_request 07-malformed.json
response_is <<'END'
{"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error","data":"unexpected end of data at byte 72"}}
END
configuration_is_unchanged
service_calls_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: message (72 bytes)
ERROR: tavo-agent: message refused: -32700 Parse error: unexpected end of data at byte 72
END

step "An attempt to break in" \
    "The library puts the section's text between single quotes into a shell command. The agent refuses" \
    "single quotes, so this text never reaches a shell."
where client "tavo-rpc demo 08-quote.json" \
    agent "uci.apply refuses it: single quotes" \
    library "" tool "" file ""
request 08-quote.json
compare "exit status of tavo-rpc" "$status" <<<1
response_is <<'END'
{"jsonrpc":"2.0","id":8,"error":{"code":-32602,"message":"Invalid params","data":"single quotes are not accepted"}}
END
configuration_is_unchanged
service_calls_are < <(nothing)
log_is <<'END'
INFO: tavo-agent: request 8 uci.apply (221 bytes)
ERROR: tavo-agent: request 8 uci.apply: -32602 Invalid params: single quotes are not accepted
END
compare "is there a file /tmp/broken-in?" "$([ -e /tmp/broken-in ] && echo yes || echo no)" <<'END'
no
END

step "Run a program that is not allowed"
where client "tavo-rpc demo 10-program-refused.json" \
    agent "process.run refuses it: not named by --allow" \
    library "" tool "" file ""
request 10-program-refused.json
compare "exit status of tavo-rpc" "$status" <<<1
response_is <<'END'
{"jsonrpc":"2.0","id":10,"error":{"code":-32602,"message":"Invalid params","data":"program \"reboot\" is not allowed"}}
END
log_is <<'END'
INFO: tavo-agent: request 10 process.run (119 bytes)
ERROR: tavo-agent: request 10 process.run: -32602 Invalid params: program "reboot" is not allowed
END
