/* SPDX-License-Identifier: MIT
 *
 * The host's side of the annex, which our own caller puts behind the block: replies that carry the number of their
 * request, calls that are counted, and a word that tells whether the host lives. Without one all is done by signals
 * alone, as with any other caller. */
#ifndef KA_ANNEX_H
#define KA_ANNEX_H

#include <stddef.h>
#include <stdint.h>

namespace host {

/* Looks for one behind the block, in the segment that it begins. */
void find_annex(void *block, int32_t block_bytes, size_t segment_bytes);

/* The host is ready: from here on the caller may rely on it. */
void offer_annex(void);

/* Before the block is detached. */
void leave_annex(void);

/* The rest is for a host that has offered one; in any other it does nothing. */
bool has_annex(void);

/* Around a call: before the first look at the block, and after the last. */
void begin_call(void);
void end_call(void);

/* Whether something was asked or answered that has not been taken; and if so, whether it is an answer.
   Without an annex each signal counts. */
bool has_request(void);
bool is_answer(void);
void take_request(void);

/* A signal of the caller's own that brings no new request: the request was taken at a signal of someone else. */
bool is_leftover(int32_t sender);

/* Whether pid is another process than the caller that has made the annex, or perhaps one of its threads. */
bool is_stranger(int32_t pid);

/* True when the caller hears of it without a signal. */
bool tell_reply(bool callback);

/* ---- Requests and answers without a signal --------------------------------------------------------------------- */

/* The one that was taken last allows the next one to come so; until the host has waited for it in vain. */
bool may_come_quietly(void);

/* Before a reply, the end of a call or a call-back: whether await_quietly follows it. */
void before_reply(bool waits_quietly);

/* Waits, for some milliseconds at most, for a request or an answer that has not been taken. False: from here on it
   comes with a signal. */
bool await_quietly(void);

/* What has come is turned into the signal that the caller would have sent, and from here on comes with one. */
void turn_into_signal(void);

} // namespace host

#endif
