# SPDX-License-Identifier: Apache-2.0
"""ip.h through ctypes: ctypes_test.py LIBRARY."""

import ctypes
import ipaddress
import sys
import unittest

LIBRARY = sys.argv.pop(1)


class Address(ctypes.Structure):
    _fields_ = [("bytes", ctypes.c_uint8 * 16)]


def loaded():
    library = ctypes.CDLL(LIBRARY)
    pointer = ctypes.POINTER(Address)
    prototypes = {
        "ip_ntop_r": (ctypes.c_char_p, [pointer, ctypes.c_char_p, ctypes.c_uint32]),
        "ip_ntop": (ctypes.c_char_p, [pointer]),
        "ip_pton_r": (None, [ctypes.c_char_p, pointer]),
        "ip_pton": (pointer, [ctypes.c_char_p]),
        "ip_nptop_r": (ctypes.c_int, [pointer, ctypes.c_uint, ctypes.c_char_p, ctypes.c_size_t]),
        "ip_nptop": (ctypes.c_char_p, [pointer, ctypes.c_uint]),
        "hosts_on_network": (pointer, [pointer, pointer, ctypes.POINTER(ctypes.c_uint32)]),
    }
    for name, (result, arguments) in prototypes.items():
        function = getattr(library, name)
        function.restype, function.argtypes = result, arguments
    return library


ip = loaded()
libc = ctypes.CDLL(None)
libc.free.argtypes = [ctypes.c_void_p]


def parsed(text):
    address = Address()
    ip.ip_pton_r(text.encode(), address)
    return address


def packed(text):
    """The sixteen bytes of an address, made without the library."""
    address = ipaddress.ip_address(text)
    mapped = address if address.version == 6 else ipaddress.ip_address("::ffff:" + text)
    return mapped.packed


def hosts(network, mask):
    count = ctypes.c_uint32(0)
    records = ip.hosts_on_network(parsed(network), parsed(mask), ctypes.byref(count))
    if not records:
        return None
    listed = [bytes(records[i].bytes) for i in range(count.value)]
    libc.free(records)
    return listed


class IpTest(unittest.TestCase):
    def test_parses_and_prints(self):
        for text in ["10.1.2.3", "255.255.255.255", "::", "::1", "fe80::1", "2001:db8::8a2e:370:7334"]:
            with self.subTest(text=text):
                self.assertEqual(bytes(parsed(text).bytes), packed(text))
                self.assertEqual(bytes(ip.ip_pton(text.encode()).contents.bytes), packed(text))
                buffer = ctypes.create_string_buffer(64)
                self.assertEqual(ip.ip_ntop_r(parsed(text), buffer, 64), text.encode())
                self.assertEqual(ip.ip_ntop(parsed(text)), text.encode())

    def test_prints_ports(self):
        buffer = ctypes.create_string_buffer(64)
        self.assertEqual(ip.ip_nptop_r(parsed("10.1.2.3"), 80, buffer, 64), 11)
        self.assertEqual(buffer.value, b"10.1.2.3:80")
        self.assertEqual(ip.ip_nptop(parsed("::1"), 80), b"::1.80")

    def test_lists_the_hosts_of_a_network(self):
        expected = [host.packed for host in ipaddress.ip_network("192.168.7.0/24")]
        self.assertEqual([host[12:] for host in hosts("192.168.7.99", "255.255.255.0")], expected)

    def test_lists_each_host_of_the_largest_network_once(self):
        listed = hosts("10.0.0.0", "255.255.0.0")
        self.assertEqual(listed[1], packed("10.0.1.0"))
        expected = [host.packed for host in ipaddress.ip_network("10.0.0.0/16")]
        self.assertEqual(sorted(host[12:] for host in listed), expected)

    def test_has_nothing_to_list(self):
        self.assertIsNone(hosts("10.0.0.0", "255.254.0.0"))
        self.assertIsNone(hosts("fe80::1", "255.255.255.0"))


if __name__ == "__main__":
    unittest.main()
