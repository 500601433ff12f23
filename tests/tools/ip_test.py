# SPDX-License-Identifier: Apache-2.0
"""tarnutil ip: the hosts of a network, and one address."""

import ipaddress

from command import CommandTest, main, run

NO_HOSTS = (
    "tarnutil: no hosts: the network has to be IPv4, neither it nor the mask 0.0.0.0, "
    "and the mask may leave at most 16 host bits\n"
)


class IpHostsTest(CommandTest):
    def test_lists_a_network_and_its_mask(self):
        expected = "192.168.7.4\n192.168.7.5\n192.168.7.6\n192.168.7.7\n"
        self.expect(run("ip", "hosts", "192.168.7.6", "255.255.255.252"), 0, stdout=expected, stderr="")

    def test_a_prefix_stands_for_a_mask(self):
        self.expect(run("ip", "hosts", "10.0.0.9/31"), 0, stdout="10.0.0.8\n10.0.0.9\n")
        self.expect(run("ip", "hosts", "10.0.0.9/32"), 0, stdout="10.0.0.9\n")

    def test_keeps_the_order_of_the_library(self):
        lines = run("ip", "hosts", "10.0.0.0", "255.255.0.0").stdout.decode().split()
        self.assertEqual(len(lines), 65536)
        self.assertEqual(lines[:2] + lines[255:257], ["10.0.0.0", "10.0.1.0", "10.0.255.0", "10.0.0.1"])

    def test_sorts_by_number(self):
        lines = run("ip", "hosts", "10.0.0.0/20", "--sorted").stdout.decode().split()
        self.assertEqual(lines, [str(host) for host in ipaddress.ip_network("10.0.0.0/20")])

    def test_a_mask_need_not_be_contiguous(self):
        self.expect(run("ip", "hosts", "10.0.0.0", "255.255.255.253"), 0, stdout="10.0.0.0\n10.0.0.2\n")

    def test_refuses_what_has_no_hosts_to_list(self):
        for arguments in [
            ["10.0.0.0/15"],
            ["10.0.0.0/0"],
            ["10.0.0.0", "0.0.0.0"],
            ["0.0.0.0/24"],
            ["fe80::1/24"],
            ["::", "255.255.255.0"],
        ]:
            with self.subTest(arguments=arguments):
                self.expect(run("ip", "hosts", *arguments), 1, stdout="", stderr=NO_HOSTS)

    def test_text_that_is_no_address_is_unusable(self):
        expected = 'tarnutil: Could not convert string to IP address: "10.0.0"\n'
        for arguments in [["10.0.0/24"], ["10.0.0", "255.255.255.0"], ["10.0.0.0", "10.0.0"]]:
            with self.subTest(arguments=arguments):
                self.expect(run("ip", "hosts", *arguments), 2, stdout="", stderr=expected)

    def test_a_bad_prefix_is_unusable(self):
        for prefix in ["", "33", "-1", "x", "1x", "032", "4294967328"]:
            with self.subTest(prefix=prefix):
                expected = 'tarnutil: a prefix has 0 to 32 bits, not "' + prefix + '"\n'
                self.expect(run("ip", "hosts", "10.0.0.0/" + prefix), 2, stdout="", stderr=expected)

    def test_a_mask_and_a_prefix_are_one_too_many(self):
        for arguments in [["10.0.0.0/24", "255.255.255.0"], ["10.0.0.0"]]:
            with self.subTest(arguments=arguments):
                self.expect(run("ip", "hosts", *arguments), 2, stdout="")


class IpShowTest(CommandTest):
    def test_shows_an_ipv4_address(self):
        expected = "address    10.1.2.3\nfamily     IPv4\nrecord     00000000000000000000ffff0a010203\n"
        for text in ["10.1.2.3", "::ffff:10.1.2.3"]:
            with self.subTest(text=text):
                self.expect(run("ip", "show", text), 0, stdout=expected, stderr="")

    def test_shows_an_ipv6_address_with_its_port_both_ways(self):
        expected = (
            "address    ::1\nfamily     IPv6\nrecord     00000000000000000000000000000001\n"
            "with port  ::1.80\nin a URL   [::1]:80\n"
        )
        self.expect(run("ip", "show", "::1", "80"), 0, stdout=expected)
        self.expect(run("ip", "show", "::1", "65616"), 0, stdout=expected)

    def test_an_ipv4_address_needs_no_brackets(self):
        process = run("ip", "show", "10.1.2.3", "80")
        self.assertIn(b"with port  10.1.2.3:80\nin a URL   10.1.2.3:80\n", process.stdout)

    def test_the_unspecified_addresses_are_addresses(self):
        for text in ["::", "0:0:0:0:0:0:0:0", "0.0.0.0"]:
            with self.subTest(text=text):
                self.expect(run("ip", "show", text), 0, stderr="")

    def test_text_that_is_no_address_is_unusable(self):
        expected = 'tarnutil: Could not convert string to IP address: "x"\n'
        self.expect(run("ip", "show", "x"), 2, stdout="", stderr=expected)

    def test_trace_shows_where_the_library_refused_it(self):
        process = run("--trace", "ip", "show", "x")
        self.expect(process, 2, stdout="")
        lines = process.stderr.decode().splitlines()
        self.assertEqual(lines[1], "tarnutil::Exception")
        self.assertTrue(any("tarnutil::StringUtil::stringToIp" in line for line in lines), lines)

    def test_a_port_is_a_number(self):
        self.expect(run("ip", "show", "::1", "http"), 2, stdout="")


class IpHelpTest(CommandTest):
    def test_shows_examples(self):
        for arguments in [["ip"], ["ip", "hosts"], ["ip", "show"]]:
            with self.subTest(arguments=arguments):
                self.assertIn(b"Example", run(*arguments, "--help").stdout)


if __name__ == "__main__":
    main()
