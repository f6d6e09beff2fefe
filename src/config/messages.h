// SPDX-License-Identifier: MIT
// The fatal messages of the two configuration files, as printf formats. They stand here once, so that a program which
// only checks files foretells the daemon's end in the daemon's own words. A number marks the call site; the status that
// the daemon ends with stands above each group.
#pragma once

// --- Services list: status 110 ---------------------------------------------------------------------------------------

inline constexpr int kServicesListStatus = 110;

inline constexpr char kServicesNotFound[] = "ERROR 100130114: cannot find services config file: %s";      // path
inline constexpr char kServicesStatInvalid[] = "ERROR 100130114: services config file stat invalid: %s";  // path
inline constexpr char kServicesReadError[] =
    "ERROR 100130114: read error size :%d bytes, services config file %s";  // size, path
inline constexpr char kServicesMissingName[] =
    "ERROR 131155: ERROR in %s: missing name attribute in <mdnsservice> tag, exiting.";  // path
inline constexpr char kServicesMissingEndTag[] =
    "ERROR 131155: ERROR in %s: missing </mdnsservice> after <mdnsservice> tag, exiting.";  // path
inline constexpr char kServicesMissingType[] =
    "ERROR 131157: ERROR in %s: missing type= for <mdnsservice name=\"%s\">";  // path, service name

// --- Rules list: status 120 ------------------------------------------------------------------------------------------

inline constexpr int kRulesListStatus = 120;

inline constexpr char kRulesNotFound[] = "ERROR 12013011401: cannot find rules config file: %s";      // path
inline constexpr char kRulesStatInvalid[] = "ERROR 12013011401: rules config file stat invalid: %s";  // path
inline constexpr char kRulesReadError[] =
    "ERROR 12013011401: read error size :%d bytes, rules config file %s";  // size, path
// "missing": the word is there and has no value. A tag without the word is no rule, and nothing is said of it.
inline constexpr char kRulesMissingService[] =
    "ERROR 12013011402: in %s: missing mdnsservice attribute in <mdnsproxyrule> tag";  // path
inline constexpr char kRulesMissingRuleType[] =
    "ERROR 12013011403: in %s: missing rule_type attribute for <mdnsproxyrule mdnsservice=\"%s\">";  // path, service
inline constexpr char kRulesMissingIfFrom[] =
    "ERROR 12013011404: in %s: missing if_from attribute for <mdnsproxyrule mdnsservice=\"%s\">";  // path, service
inline constexpr char kRulesMissingIfTo[] =
    "ERROR 12013011405: in %s: missing if_to attribute for <mdnsproxyrule mdnsservice=\"%s\">";  // path, service
inline constexpr char kRulesMissingBidirectional[] =
    "ERROR 12013011406: in %s: missing bidirectional attribute for <mdnsproxyrule "
    "mdnsservice=\"%s\">";  // path, service
inline constexpr char kRulesInvalidBidirectional[] =
    "ERROR 12013011407: in %s: invalid value for bidirectional attribute for <mdnsproxyrule mdnsservice=\"%s\"> -- "
    "value must be one of: { 1, YES, yes, TRUE, true, 0, no, NO, false, FALSE }, found value is: "
    "%s";  // path, service, value
inline constexpr char kRulesUnknownService[] =
    "ERROR 12013011408: in %s: invalid value for mdnsservice attribute for <mdnsproxyrule mdnsservice=\"%s\"> -- value "
    "does not appear in services config file %s, exiting.";  // path, service, services list path
inline constexpr char kRulesInvalidRuleType[] =
    "ERROR 12013011409: in %s: invalid value for rule_type for <mdnsproxyrule mdnsservice=\"%s\"> -- value must be one "
    "of: { 0, 1 } -- the incorect value found is: %s";  // path, service, value

// --- No memory: status 20; no array: status 800 ----------------------------------------------------------------------

inline constexpr char kServicesNoBuffer[] = "ERROR 100130114: cannot alloc buf for services config file: %s";  // path
inline constexpr char kRulesNoBuffer[] = "ERROR 12013011401: cannot alloc buf for rules config file: %s";      // path
