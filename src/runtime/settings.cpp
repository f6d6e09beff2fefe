// SPDX-License-Identifier: MIT
#include "runtime/settings.h"

Settings gSettings = {
    .version = MDNSPROXY_VERSION,
    .run_directory = "/tmp",
    .pid_file = "/var/run/mdnsproxy.pid",
    .services_file = "/etc/mdnsservice-list.xml",
    .rules_file = "/tmp/mdnsproxyrule-list.xml",
    .domain = "local",
    .status_file = "/tmp/mdnsproxy.out",
    .responder_limit = kResponderLimit,
};
