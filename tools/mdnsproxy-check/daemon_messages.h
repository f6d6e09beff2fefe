// SPDX-License-Identifier: MIT
// Fatal messages of the daemon's rule installation, as printf formats. A test holds them against the daemon's own.
#pragma once

inline constexpr int kInterfaceStatus = 40;
inline constexpr char kUnknownIfFrom[] =
    "INTERFACE LOOKUP ERROR 111833: Could not find interface named '%s' on this system, please double-check the "
    "accuracy of the mdnsproxy rules config file: %s.  Critical error, exiting.";  // interface, rules list path
inline constexpr char kUnknownIfTo[] =
    "INTERFACE LOOKUP ERROR 111834: Could not find interface named '%s' on this system, please double-check the "
    "accuracy of the mdnsproxy rules config file: %s.  Critical error, exiting.";  // interface, rules list path

inline constexpr int kDnssdStatus = 600;
inline constexpr char kBrowseFailed[] = "ERROR 131813: MyDNSServiceBrowse  call failed: %d";  // DNS-SD error code
inline constexpr int kBadParameter = -65540;  // kDNSServiceErr_BadParam: what the DNS-SD library says of a type that is
                                              // none
