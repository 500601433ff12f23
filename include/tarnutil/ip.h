/* SPDX-License-Identifier: Apache-2.0 */
/* IPv4 and IPv6 addresses as one 16-byte record, their text, and the hosts of an IPv4 network.
 *
 * Errors:  reported by result only; errno is as libc left it. No pointer may be NULL, except where
 *          ip_nptop_r and hosts_on_network say so.
 * Threads: the _r functions and hosts_on_network are re-entrant. ip_ntop, ip_pton and ip_nptop
 *          return static storage: one thread at a time, and each call overwrites the last result.
 */
#ifndef TARNUTIL_IP_H
#define TARNUTIL_IP_H

#include <stddef.h>
#include <stdint.h>

#include <tarnutil/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An IPv6 address in network byte order. The IPv4 address a.b.c.d is held as ::ffff:a.b.c.d, and
 * every such record counts as IPv4, however it came about. */
typedef struct ip_addr {
    uint8_t bytes[16]; /* the most significant first */
} ip_addr_t;

/* Prints `*addr` into `buf` of `len` bytes: IPv4 as a dotted quad, anything else as IPv6. 46 bytes
 * (INET6_ADDRSTRLEN) are always enough.
 * Returns `buf`; NULL with errno ENOSPC, and nothing useful in `buf`, if the text does not fit. */
TARNUTIL_API const char* ip_ntop_r(const ip_addr_t* addr, char* buf, uint32_t len);

/* As ip_ntop_r, into a static buffer that is returned in every case. */
TARNUTIL_API char* ip_ntop(const ip_addr_t* addr);

/* Parses IPv6 or IPv4 `text` into `*out`. Text that is neither leaves `*out` as it was and is not
 * reported: preset `*out` if you need to know. */
TARNUTIL_API void ip_pton_r(const char* text, ip_addr_t* out);

/* As ip_pton_r, into a static record that is returned in every case: after text that is no address
 * it holds the last address parsed (all zero before the first). */
TARNUTIL_API ip_addr_t* ip_pton(const char* text);

/* Prints an address and a port into `buf` of `size` bytes: "a.b.c.d:port" for IPv4, but a dot
 * before the port for IPv6, as in "::1.80". Only the low 16 bits of `port` count: 65616 prints
 * as 80. Returns, as snprintf does, the length of the whole text without its NUL: the text was cut
 * if that is `size` or more. `buf` may be NULL if `size` is 0. */
TARNUTIL_API int ip_nptop_r(const ip_addr_t* addr, unsigned port, char* buf, size_t size);

/* As ip_nptop_r, into a static buffer that is returned in every case. The static buffer of ip_ntop
 * is overwritten too. */
TARNUTIL_API char* ip_nptop(const ip_addr_t* addr, unsigned port);

/* Lists every address of an IPv4 network, its network and broadcast addresses included.
 *
 * Of `*mask` only the last four bytes count, and its one bits need not be contiguous. The host bits
 * that it leaves are cleared in `*network`, then counted through: of the bytes the one of lower
 * address runs fastest, within a byte its lowest host bit, whether or not the bits are contiguous.
 * 10.0.0.0 with mask 255.255.0.0 lists 10.0.0.0, 10.0.1.0, 10.0.2.0, ...
 *
 * Returns `*count` records that the caller releases with free(); NULL if an argument is NULL, the
 * network or the mask is 0.0.0.0, the network is not IPv4, the mask leaves more than 16 host bits,
 * or memory is short. Only in the last of these cases is `*count` set. */
TARNUTIL_API ip_addr_t* hosts_on_network(const ip_addr_t* network, const ip_addr_t* mask,
                                         uint32_t* count);

#ifdef __cplusplus
}
#endif
#endif /* TARNUTIL_IP_H */
