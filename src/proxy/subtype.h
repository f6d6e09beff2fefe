// SPDX-License-Identifier: MIT
// The subtype pointer of an instance, re-announced on if_to.
#pragma once

struct QueryReply;

// One answer to an instance's subtype query, of which the context is its subtype_query_context. The answer that names
// the instance is registered on if_to and ends the query; every other is logged and ignored.
void process_queryrecord_PTR(const QueryReply& reply);
