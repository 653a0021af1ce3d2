# shellcheck shell=bash disable=SC2034,SC2154 # the files share their variables
# The demo. Runs in the sandbox: /etc/config, /etc/init.d, /opt and /tmp are those of a simulated
# gateway that is removed when this shell ends.
set -euo pipefail
demo=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repo=$(cd "$demo/../../.." && pwd)
agent_bin=$TAVO_BUILD_DIR/agent
bin=$TAVO_BUILD_DIR/examples

. "$demo/show.sh"
. "$demo/where.sh"
. "$demo/programs.sh"
. "$demo/requests.sh"

# What it shows, in this order.
. "$demo/agent_start.sh"
. "$demo/configuration.sh"
. "$demo/refusals.sh"
. "$demo/gateway.sh"
. "$demo/agent_end.sh"
. "$demo/examples.sh"

pause
summary
