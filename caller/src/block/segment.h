/* SPDX-License-Identifier: MIT
 *
 * The shared segment: its life, its fields, and what of it was overwritten. Nothing that steers the library is read
 * back from it. */
#ifndef KA_CALLER_SEGMENT_H
#define KA_CALLER_SEGMENT_H

#include "host/host.h"

int32_t check_sizes(ka_host *host);
int32_t create_segment(ka_host *host);
void remove_segment(ka_host *host);

/* Makes it as large as needed, if ka_options.segment_max allows it and the system has the memory. It is private then:
   no process has it, and the one that runs is to be replaced. */
bool grow_segment(ka_host *host, int64_t needed);
/* For a process that starts: one that has grown becomes shared. */
int32_t share_segment(ka_host *host);

/* For a host that may come too late. Spoiled, the segment turns away who attaches it. Then a new one takes its place
   and its content, at the same addresses; the old one stays where the system grants no other. */
void spoil_segment(ka_host *host);
void renew_segment(ka_host *host);

int32_t load32(const ka_host *host, int32_t offset);
void store32(ka_host *host, int32_t offset, int32_t value);

void write_header(ka_host *host);
void store_caller(ka_host *host, pid_t caller); /* where the host's replies go */
void write_descriptor(ka_host *host, int32_t index);
int32_t descriptor_offset(const ka_host *host, int32_t index);
bool still_by_reference(const ka_host *host, int32_t index);
enum { VALUES_START = sizeof(t_DLL_INFO64) }; /* after the descriptors of either layout */

/* Fields of the header that a module has overwritten: a bit for each, and their names. */
uint32_t overwritten_fields(const ka_host *host, pid_t caller);
const char *header_field(int number);                             /* null after the last */
void write_overwritten(uint32_t fields, char *text, size_t size); /* "base, pid" */

#endif
