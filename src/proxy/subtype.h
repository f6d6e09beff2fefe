// SPDX-License-Identifier: MIT
// The subtype PTR record of an instance, registered again on if_to.
#pragma once

struct QueryReply;

// Handles one answer to an instance's subtype query, whose context is the subtype_query_context. The answer that names
// the instance is registered on if_to and ends the query; every other one is logged and ignored.
void process_queryrecord_PTR(const QueryReply& reply);
