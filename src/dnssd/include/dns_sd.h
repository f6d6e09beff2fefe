// SPDX-License-Identifier: MIT
// dns_sd.h: the interface between a program and its DNS-SD library, as far as libdns_sd.so.1 has it. For C99 and C++.
//
// Names, values and types are the usual ones, so that a program that is compiled with this header runs on every
// library of the interface, and a program that is compiled with another dns_sd.h runs on this library. The comments
// say what this library does.
//
// How it is used: a call starts an operation and gives a reference to it. The program waits until the reference's
// descriptor is readable and calls DNSServiceProcessResult, which delivers the replies to the callbacks.
// DNSServiceRefDeallocate ends the operation. What holds for all of it, signals, threads and goodbyes among it,
// stands in dnssd/dnssd.h.
#pragma once

#include <stdint.h>  // NOLINT(modernize-deprecated-headers): for C, too

#if defined(__cplusplus)
extern "C" {
#endif

// Stands before the name of each function and callback; calls are the platform's usual ones on Linux.
#define DNSSD_API

// --- Types -----------------------------------------------------------------------------------------------------------

// A running operation, or a connection. One that has been released is recognised as bad, and harmless.
typedef struct _DNSServiceRef_t* DNSServiceRef;

// A record that was registered by itself; belongs to a connection, and ends with it.
typedef struct _DNSRecordRef_t* DNSRecordRef;

typedef uint32_t DNSServiceFlags;     // bits of kDNSServiceFlags...
typedef int32_t DNSServiceErrorType;  // one of kDNSServiceErr_...

// --- Values ----------------------------------------------------------------------------------------------------------

enum {
  // In replies.
  kDNSServiceFlagsMoreComing = 0x1,  // more replies follow at once: a program that shows them may wait for the last
  kDNSServiceFlagsAdd = 0x2,         // found or registered; without it: gone

  // In calls.
  kDNSServiceFlagsNoAutoRename = 0x8,       // a conflict over the service's name is reported; else it gets a number
  kDNSServiceFlagsShared = 0x10,            // of a record: others may have records of this name and type; no probes
  kDNSServiceFlagsUnique = 0x20,            // of a record: nobody else may; probed for
  kDNSServiceFlagsLongLivedQuery = 0x100,   // every query is one here
  kDNSServiceFlagsForceMulticast = 0x400,   // everything is multicast here
  kDNSServiceFlagsShareConnection = 0x4000  // *sdRef is a copy of a connection's reference, which serves this, too
};

enum {
  kDNSServiceErr_NoError = 0,
  kDNSServiceErr_Unknown = -65537,            // not from this library; others return it when nothing else fits
  kDNSServiceErr_NoMemory = -65539,           // not from this library
  kDNSServiceErr_BadParam = -65540,           // an argument is missing or is not well formed
  kDNSServiceErr_BadReference = -65541,       // stale, never given out, or of the wrong kind
  kDNSServiceErr_BadState = -65542,           // not now: in a callback, or after a conflict that ended the registration
  kDNSServiceErr_BadFlags = -65543,           // the flags exclude each other, or one is missing
  kDNSServiceErr_Unsupported = -65544,        // this library does not have it
  kDNSServiceErr_NameConflict = -65548,       // somebody else has the name
  kDNSServiceErr_BadInterfaceIndex = -65552,  // no interface has this index
  kDNSServiceErr_Refused = -65553,            // not from this library
  kDNSServiceErr_NoAuth = -65555,             // the kernel lets nobody without privileges bind a socket to an interface
  kDNSServiceErr_ServiceNotRunning = -65563   // the system gives no sockets or descriptors
};

// Types and classes of records (RFC 1035, 2782, 3596).
enum {
  kDNSServiceType_A = 1,
  kDNSServiceType_CNAME = 5,
  kDNSServiceType_PTR = 12,
  kDNSServiceType_TXT = 16,
  kDNSServiceType_AAAA = 28,
  kDNSServiceType_SRV = 33,
  kDNSServiceType_ANY = 255
};

enum { kDNSServiceClass_IN = 1 };

// Interface indexes that are no interface's. This library takes neither: an operation runs on one interface.
#define kDNSServiceInterfaceIndexAny 0
#define kDNSServiceInterfaceIndexLocalOnly UINT32_MAX

// --- References ------------------------------------------------------------------------------------------------------

// Makes a connection, a reference that operations share (kDNSServiceFlagsShareConnection) and records belong to;
// *sdRef is it then. kDNSServiceErr_BadParam: sdRef is null. kDNSServiceErr_ServiceNotRunning: the system refuses a
// descriptor.
DNSServiceErrorType DNSSD_API DNSServiceCreateConnection(DNSServiceRef* sdRef);

// The descriptor to wait for, readable while there is something to process; the same for every reference of the
// process. It is the library's: the program neither reads nor closes it. -1: no such reference.
int DNSSD_API DNSServiceRefSockFD(DNSServiceRef sdRef);

// Does what is due and delivers replies, of every operation of the process, not of this one alone. Never blocks. The
// process may end here by a SIGTERM that the library has held back. kDNSServiceErr_BadParam: sdRef is null.
// kDNSServiceErr_BadReference: no such reference. kDNSServiceErr_BadState: called in a callback.
// kDNSServiceErr_ServiceNotRunning: the sockets are lost, for good.
DNSServiceErrorType DNSSD_API DNSServiceProcessResult(DNSServiceRef sdRef);

// Ends an operation, or a connection with all that is made on it. What was registered is withdrawn; no reply comes
// any more. May be called in a callback. A reference that does not exist is passed over. With the last one, goodbyes
// have gone out on return.
void DNSSD_API DNSServiceRefDeallocate(DNSServiceRef sdRef);

// --- Operations ------------------------------------------------------------------------------------------------------
//
// Of all of them:
//
// sdRef            where the reference goes; with kDNSServiceFlagsShareConnection it holds a connection's before
// interfaceIndex   the interface to run on, as if_nametoindex gives it
// domain           "local", "local.", "" or null
// callBack         called from DNSServiceProcessResult only, with `context` as it was given
//
// kDNSServiceErr_BadParam: sdRef is null, a name or a type is none, or callBack is null. kDNSServiceErr_Unsupported:
// another domain, or interface index 0 or LocalOnly. kDNSServiceErr_BadReference: what is to be shared is no
// connection. kDNSServiceErr_BadInterfaceIndex, kDNSServiceErr_NoAuth and kDNSServiceErr_ServiceNotRunning: see
// there. After an error nothing has begun and *sdRef is as it was.
//
// The texts and data of a reply are gone when the callback returns: a program copies what it keeps.

// An instance was found (kDNSServiceFlagsAdd) or is gone. `serviceName` is plain text; `regtype` and `replyDomain`
// end in a dot.
typedef void(DNSSD_API* DNSServiceBrowseReply)(DNSServiceRef sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                               DNSServiceErrorType errorCode, const char* serviceName,
                                               const char* regtype, const char* replyDomain, void* context);

// Looks for instances of a type: "_ipp._tcp", or of one subtype: "_ipp._tcp,_universal" or "_universal._ipp._tcp".
DNSServiceErrorType DNSSD_API DNSServiceBrowse(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                               const char* regtype, const char* domain, DNSServiceBrowseReply callBack,
                                               void* context);

// Where an instance is, reported again whenever that has changed. `fullname` and `hosttarget` are escaped names that
// end in a dot; `port` is in network byte order; `txtRecord` holds the txtLen bytes of the TXT record, strings that
// each begin with a length.
typedef void(DNSSD_API* DNSServiceResolveReply)(DNSServiceRef sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                DNSServiceErrorType errorCode, const char* fullname,
                                                const char* hosttarget, uint16_t port, uint16_t txtLen,
                                                const unsigned char* txtRecord, void* context);

// Asks for the host, port and TXT data of an instance; `name`, `regtype` and `domain` as the browse has reported
// them. Unlike elsewhere a null `domain` is kDNSServiceErr_BadParam.
DNSServiceErrorType DNSSD_API DNSServiceResolve(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                const char* name, const char* regtype, const char* domain,
                                                DNSServiceResolveReply callBack, void* context);

// A record was found; its end is not reported. `rdata` holds rdlen bytes in wire format, names in them uncompressed;
// `ttl` is in seconds.
typedef void(DNSSD_API* DNSServiceQueryRecordReply)(DNSServiceRef sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                    DNSServiceErrorType errorCode, const char* fullname,
                                                    uint16_t rrtype, uint16_t rrclass, uint16_t rdlen,
                                                    const void* rdata, uint32_t ttl, void* context);

// Asks for the records of an escaped name, with or without the dot at its end, until it is released. rrtype 0 is
// kDNSServiceErr_BadParam; kDNSServiceType_ANY and classes other than kDNSServiceClass_IN are
// kDNSServiceErr_Unsupported.
DNSServiceErrorType DNSSD_API DNSServiceQueryRecord(DNSServiceRef* sdRef, DNSServiceFlags flags,
                                                    uint32_t interfaceIndex, const char* fullname, uint16_t rrtype,
                                                    uint16_t rrclass, DNSServiceQueryRecordReply callBack,
                                                    void* context);

// The service is registered under this name (kDNSServiceErr_NoError), or with kDNSServiceFlagsNoAutoRename has lost it
// (kDNSServiceErr_NameConflict). A new name after a conflict is reported again.
typedef void(DNSSD_API* DNSServiceRegisterReply)(DNSServiceRef sdRef, DNSServiceFlags flags,
                                                 DNSServiceErrorType errorCode, const char* name, const char* regtype,
                                                 const char* domain, void* context);

// Announces a service.
//
// name        plain text; null or "": the machine's. Cut to 63 bytes, or BadParam if it may not be renamed
// regtype     with subtypes after commas: "_ipp._tcp,_universal,_print"
// host        an escaped name, of this machine or any other; null or "": this machine's. Publishes no address of it
// port        in network byte order; 0 keeps the name for itself and announces nothing
// txtRecord   txtLen bytes, strings that each begin with a length; none stand for one empty string
// callBack    may be null, unless the name may not be changed
//
// kDNSServiceErr_BadFlags: kDNSServiceFlagsNoAutoRename without a name or a callback.
DNSServiceErrorType DNSSD_API DNSServiceRegister(DNSServiceRef* sdRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                                 const char* name, const char* regtype, const char* domain,
                                                 const char* host, uint16_t port, uint16_t txtLen,
                                                 const void* txtRecord, DNSServiceRegisterReply callBack,
                                                 void* context);

// --- Single records --------------------------------------------------------------------------------------------------

// The record is registered, or somebody else has its name (kDNSServiceErr_NameConflict): then it is not published,
// and is still to be removed.
typedef void(DNSSD_API* DNSServiceRegisterRecordReply)(DNSServiceRef sdRef, DNSRecordRef RecordRef,
                                                       DNSServiceFlags flags, DNSServiceErrorType errorCode,
                                                       void* context);

// Publishes one record on the connection sdRef, which is not written to; *RecordRef is the record. `rdata` holds
// rdlen bytes in wire format, at least one; `ttl` is in seconds, 0 means the usual one of the type. The other
// arguments and errors are those of an operation and of DNSServiceQueryRecord. kDNSServiceErr_BadFlags: not exactly
// one of Shared and Unique. After an error *RecordRef is as it was.
DNSServiceErrorType DNSSD_API DNSServiceRegisterRecord(DNSServiceRef sdRef, DNSRecordRef* RecordRef,
                                                       DNSServiceFlags flags, uint32_t interfaceIndex,
                                                       const char* fullname, uint16_t rrtype, uint16_t rrclass,
                                                       uint16_t rdlen, const void* rdata, uint32_t ttl,
                                                       DNSServiceRegisterRecordReply callBack, void* context);

// Gives a record other data, announced at once; with a null RecordRef the TXT record of the service that sdRef is. No
// reply follows. kDNSServiceErr_BadParam: sdRef or rdata is null, or the data is not of the record's type.
// kDNSServiceErr_BadReference: no such record or service. kDNSServiceErr_BadState: it was lost to a conflict.
// kDNSServiceErr_NameConflict: a service that this process has registered holds the name with other data. After an
// error the old data stands.
DNSServiceErrorType DNSSD_API DNSServiceUpdateRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef, DNSServiceFlags flags,
                                                     uint16_t rdlen, const void* rdata, uint32_t ttl);

// Withdraws a record of the connection sdRef. kDNSServiceErr_BadParam: one of the two is null.
// kDNSServiceErr_BadReference: no such connection, or no such record on it.
DNSServiceErrorType DNSSD_API DNSServiceRemoveRecord(DNSServiceRef sdRef, DNSRecordRef RecordRef,
                                                     DNSServiceFlags flags);

#if defined(__cplusplus)
}
#endif
