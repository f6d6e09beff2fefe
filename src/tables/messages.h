// SPDX-License-Identifier: MIT
// The one fatal message of the tables that a configuration file can bring about, as a printf format. It stands here so
// that a program which only checks files can foretell it without the tables.
#pragma once

// Two services of one name in the services list; status 110. Arguments: service name, path of the services list.
inline constexpr char kDuplicateServiceName[] =
    "ERROR 131125: existing hash found for service_name = %s (likely in config file: %s), this is an unhandled case.  "
    "Exiting.";
