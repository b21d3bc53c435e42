/* SPDX-License-Identifier: MIT
 *
 * The caller's side of the annex (wire/annex.h), at the end of every segment. A host that does not know of it leaves
 * it alone, and then all goes by signals. Nothing that steers the library is read back from it: the numbers that a
 * reply is compared with are the library's own, and what cannot be counts as no annex. */
#ifndef KA_CALLER_ANNEX_H
#define KA_CALLER_ANNEX_H

#include <stdint.h>

struct ka_host;

/* Before each start: the host that comes has not offered anything yet. */
void wipe_annex(ka_host *host);

/* The running host has offered its own, and lives. */
bool host_uses_annex(const ka_host *host);

/* A request or an answer follows, whose reply is known by its number. Visible to the host after all that was written
   before. */
enum t_WAY {
    WITH_SIGNALS,   /* and the reply with one, too */
    WITH_A_SIGNAL,  /* and the reply without */
    WITHOUT_SIGNALS /* both, where wake_host can wake it */
};
void number_request(ka_host *host, t_WAY way);

/* After WITHOUT_SIGNALS: the host sees the request. False where it waits for a signal, which is to be sent. */
bool wake_host(ka_host *host);

/* The reply to the last request, in one look: two could see none, and then a call-back for an end. */
enum t_NUMBERED { NOT_REPLIED, REPLY_CALLS_BACK, REPLY_RETURNS };
t_NUMBERED numbered_reply(const ka_host *host);
bool has_replied(const ka_host *host); /* false of a request whose reply has no number */

/* A request was sent whose reply comes without a signal: now it comes with one, unless it is there. */
void ask_for_signal(ka_host *host);

/* After argc was taken back: no call is under way, and none that begins finds one. False also where it cannot be
   known. */
bool rests_by_annex(const ka_host *host);

#endif
