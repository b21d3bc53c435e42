/* SPDX-License-Identifier: MIT */
#ifndef KA_INHERITED_H
#define KA_INHERITED_H

/* Closes every descriptor below the process's limit but standard error. First, what the module's static constructors
   left in buffers of stdio is written; what a write would wait for, or die of, is dropped. */
void close_inherited(void);

#endif
