# SPDX-License-Identifier: MIT
# shellcheck shell=dash
# What an init script uses of procd and rc.common: each call is printed, and a function of the script is run.
for function in open_instance set_param close_instance add_reload_trigger add_interface_trigger; do
  eval "procd_$function() { echo \"procd_$function \$*\"; }"
done

# shellcheck source=/dev/null
. "$SCRIPT"
# shellcheck disable=SC2034 # the script's own names
LISTS="$TOP/mdnsproxy-uci" SHIPPED_SERVICES="$TOP/shipped.xml" CHECKER="$CHECKER_PROGRAM"
# shellcheck disable=SC2034
RULES="$TOP/rules.xml" SERVICES="$TOP/services.xml" STATE_DIRECTORY="$TOP/run/mdnsproxy"
"$1"
