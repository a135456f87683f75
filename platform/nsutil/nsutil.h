/* SPDX-License-Identifier: MIT */
/*
 * Switching the calling thread into a network namespace by name. The way back
 * is the C library's setns(2) with a descriptor of the old namespace.
 */
#pragma once

#ifdef __cplusplus
#pragma GCC visibility push(default)
extern "C" {
#endif

/*
 * The name of the network namespace in which sockets that must meet are opened;
 * starts as "default". A process may point it at another NUL-terminated string,
 * which must stay valid, before it opens the first of them.
 */
extern const char* DEFAULT_NS;

/*
 * Moves the calling thread into the namespace `name`. `nstype` is a namespace
 * type of setns(2), or 0 for any. Names are looked up under /run/netns; the
 * name "default", when no such file exists, means the network namespace of
 * process 1. Returns 0, or -1 with errno set and the thread where it was.
 */
int setnsByName(const char* name, int nstype);

/*
 * Describes the last failure of setnsByName on this thread: the call, the file
 * and the reason. Valid until the next failure; empty before the first.
 */
const char* netnsGetTracebuffer(void);

#ifdef __cplusplus
}
#pragma GCC visibility pop
#endif
