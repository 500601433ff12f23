# SPDX-License-Identifier: Apache-2.0
"""tarnutil ciphers: the offer, its explanation, warnings, refusals, names, and shell completion."""

import json
import pathlib
import re
import subprocess

import command
from command import CommandTest, main, run

ROOT = pathlib.Path(__file__).resolve().parents[2]


def listed():
    """The rows of the tests' own listing of the catalogue."""
    rows = []
    for line in (ROOT / "tests/data/ssl_suite.txt").read_text().splitlines():
        if not line.startswith("#"):
            index, number, name, bits, protocol, cipher, mac, exchange, _ = line.split()
            rows.append((int(number, 16), name, int(bits), protocol, cipher, mac, exchange))
    return rows


def row(suite):
    return "0x%05X  %-30s  %4d  %-6s  %-8s  %-6s  %-10s\n" % suite


def ciphers(*arguments):
    return run("ciphers", *arguments)


class OfferTest(CommandTest):
    def test_prints_the_rows_of_the_suites_best_first(self):
        wanted = [s for s in listed() if s[4] == "AES-GCM" and s[6] == "ECDHE_RSA"]
        wanted.sort(key=lambda suite: -suite[2])
        self.expect(ciphers("ecdhe+aes-gcm:@strength"), 0, "".join(map(row, wanted)), "")

    def test_offers_all_without_a_string(self):
        wanted = [s for s in listed()
                  if s[4] != "NULL" and not s[1].startswith("EXP") and s[3] != "SSL3"]
        self.expect(ciphers(), 0, "".join(map(row, wanted)))

    def test_options_are_the_strings_of_the_context(self):
        for option, keyword in (("--default", "default"), ("--fips", "fips"),
                                ("--common-criteria", "common_criteria")):
            wanted = "".join(row(s) for s in listed() if s[1] == "AES128-GCM-SHA256")
            self.expect(ciphers(option, "aes128-gcm-sha256", keyword), 0, wanted, "")
            self.expect(ciphers(keyword), 1, stdout="")

    def test_gmssl_is_admitted_by_its_option(self):
        self.expect(ciphers("--gmssl", "sm4"), 0, row(listed()[174]), "")
        self.assertIn(b"needs --gmssl", ciphers("sm4").stderr)

    def test_fips_counts_the_key_exchanges_that_are_admitted(self):
        def first(*options):
            return ciphers(*options, "ecdhe_ecdsa+aes-gcm:ecdhe+aes-gcm:dhe+aes-gcm:@fips").stdout.split()[1]

        self.assertEqual(first("--fips-rsa"), b"ECDHE-RSA-AES128-GCM-SHA256")
        self.assertEqual(first("--fips-ecdsa"), b"ECDHE-ECDSA-AES128-GCM-SHA256")

    def test_json_holds_every_column(self):
        offer = json.loads(ciphers("--json", "null-md5").stdout)
        self.assertEqual(offer["string"], "null-md5")
        keys = ("id", "name", "bits", "protocol", "cipher", "mac", "key_exchange")
        self.assertEqual([tuple(suite[key] for key in keys) for suite in offer["suites"]],
                         [suite for suite in listed() if suite[1] == "NULL-MD5"])
        self.assertEqual([w["kind"] for w in offer["warnings"]], ["NULL", "SSL 3"])
        self.assertNotIn("tokens", offer)

    def test_help_shows_an_example(self):
        process = ciphers("--help")
        self.expect(process, 0, stderr="")
        self.assertIn(b"Example:\n  $ tarnutil ciphers ", process.stdout)

    def test_two_strings_are_a_usage_error(self):
        self.expect(ciphers("aes", "rc4"), 2, stdout="")


class WarningTest(CommandTest):
    def test_json_holds_the_remarks(self):
        self.assertEqual(json.loads(ciphers("--json", "!all").stdout)["remarks"], ["no suite is offered"])
        self.assertEqual(json.loads(ciphers("--json", "aes:" * 300).stdout)["remarks"],
                         ["only the first 1023 of 1200 bytes of the string count"])

    def warnings(self, *arguments):
        return ciphers(*arguments).stderr.decode().splitlines()

    def test_each_danger_is_named(self):
        for string, kind, count, first in (
                ("null-sha", "NULL does not encrypt", "4 suites", "NULL-SHA"),
                ("exp-des-cbc-sha+tlsv1", "EXPORT was made weak to be exported", "1 suite", "EXP-DES-CBC-SHA"),
                ("rc4-sha:!sslv3", "RC4 leaks what it encrypts", "3 suites", "RC4-SHA"),
                ("des-cbc3-sha+dtlsv1", "DES has blocks or keys too short", "1 suite", "DES-CBC3-SHA"),
                ("aes128-sha", "SSL 3 is a broken protocol", "1 suite", "AES128-SHA"),
                ("adh-aes128-sha:!sslv3", "anonymous does not tell who answers", "1 suite", "ADH-AES128-SHA")):
            self.assertIn("warning: %s: %s, first %s" % (kind, count, first), self.warnings(string))

    def test_an_empty_offer_is_said(self):
        self.expect(ciphers(""), 0, "", "warning: no suite is offered\n")
        self.expect(ciphers("aes:!aes"), 0, "", "warning: no suite is offered\n")

    def test_a_cut_is_said(self):
        text = "none:" * 204 + "aes+this-is-cut-off"
        self.assertEqual(self.warnings(text)[0], "warning: only the first 1023 of 1039 bytes of the string count")

    def test_a_sound_offer_gets_none(self):
        self.assertEqual(self.warnings("ecdhe+aes-gcm"), [])


class ExplainTest(CommandTest):
    def effects(self, *arguments):
        tokens = json.loads(ciphers("--json", "--explain", *arguments).stdout)["tokens"]
        return [{key: value if isinstance(value, str) else [suite["name"] for suite in value]
                 for key, value in token.items() if value != []} for token in tokens]

    def test_says_what_each_token_enabled_moved_disabled_and_removed(self):
        self.assertEqual(
            self.effects("ecdhe+aes-gcm:AES128-SHA256;!ecdhe+aes-gcm+high,+ecdhe @speed -rsa+aes none"),
            [{"token": "ecdhe+aes-gcm", "enabled": ["ECDHE-RSA-AES128-GCM-SHA256", "ECDHE-RSA-AES256-GCM-SHA384"]},
             {"token": "AES128-SHA256", "enabled": ["AES128-SHA256"]},
             {"token": "!ecdhe+aes-gcm+high", "removed": ["ECDHE-RSA-AES256-GCM-SHA384"]},
             {"token": "+ecdhe", "moved": ["ECDHE-RSA-AES128-GCM-SHA256"]},
             {"token": "@speed", "moved": ["ECDHE-RSA-AES128-GCM-SHA256", "AES128-SHA256"]},
             {"token": "-rsa+aes", "disabled": ["AES128-SHA256"]},
             {"token": "none"}])

    def test_a_keyword_with_a_string_shows_it(self):
        self.assertEqual(self.effects("--default", "aes128-sha256:-aes", "AES256-SHA256:!default"),
                         [{"token": "AES256-SHA256", "enabled": ["AES256-SHA256"]},
                          {"token": "!default", "expansion": "aes128-sha256:-aes", "disabled": ["AES256-SHA256"]}])

    def test_text_joins_the_versions_of_a_suite(self):
        process = ciphers("--explain", "CAMELLIA128-SHA:rfcdtls")
        self.assertEqual(process.stdout.decode().split("\n\n")[0],
                         "CAMELLIA128-SHA\n"
                         "    enabled   CAMELLIA128-SHA (TLS1 TLS1.1 TLS1.2)\n"
                         "rfcdtls\n"
                         "    changed nothing")


class RefusalTest(CommandTest):
    def refused(self, text, caret, *arguments):
        """The first and last line of a refusal whose caret is under `caret`."""
        process = ciphers(*arguments, text)
        self.expect(process, 1, stdout="")
        lines = process.stderr.decode().splitlines()
        self.assertEqual(lines[2], "  " + caret)
        return lines[0], lines[-1]

    def test_a_caret_stands_under_the_unknown_term(self):
        self.assertEqual(self.refused("aes:!rc4+hihg:low", "         ^~~~"),
                         ('tarnutil: no word is "hihg"', "  did you mean high?"))

    def test_the_nearest_words_come_first(self):
        for text, hint in (("@strenght", "@strength"), ("edch_rsa", "ecdh_rsa"), ("AES128-SAH", "AES128-SHA"),
                           ("tlsv1.2", "tlsv1_2")):
            nearest = re.split(r" or |, |\?", self.refused(text, "^" + "~" * (len(text) - 1))[1])[0]
            self.assertEqual(nearest, "  did you mean " + hint)

    def test_the_beginning_of_a_name_is_near(self):
        self.assertIn("CAMELLIA128-SHA", self.refused("camellia12", "^~~~~~~~~~")[1])

    def test_far_from_every_word_the_list_of_words_is_named(self):
        self.assertEqual(self.refused("xyzzyplugh", "^~~~~~~~~~")[1], "  tarnutil ciphers --words lists every word")

    def test_a_missing_word_is_pointed_at(self):
        for text, caret in (("aes, rc4", "    ^"), (":aes", "^"), ("aes::", "    ^"), ("aes+", "    ^"), ("!", " ^"),
                            ("aes++rc4", "    ^")):
            self.assertEqual(self.refused(text, caret),
                             ("tarnutil: a word is missing",
                              '  separators and "+" stand alone: "aes,rc4", not "aes, rc4"'))

    def test_a_failure_inside_a_string_is_shown_there(self):
        self.assertEqual(self.refused("aes:!default+rc4", "     ^~~~", "--default", "aes:-3dse:x"),
                         ('tarnutil: no word is "3dse" in what "default" stands for', "  did you mean 3des?"))

    def test_a_word_behind_a_sound_string_is_found(self):
        self.assertEqual(self.refused("default+zzzzz:x", "        ^~~~~", "--default", "aes")[0],
                         'tarnutil: no word is "zzzzz"')

    def test_bytes_that_do_not_print_keep_their_columns(self):
        self.assertEqual(self.refused("aes:\u00e4b:\t", "    ^~~")[0], 'tarnutil: no word is "??b"')


class NamesTest(CommandTest):
    def rows(self):
        lines = ciphers("--cross-reference").stdout.decode().splitlines()
        return {int(number, 16): (own, iana, openssl) for number, own, iana, openssl in map(str.split, lines)}

    def test_every_suite_has_a_row(self):
        self.assertEqual({number: own for number, (own, _, _) in self.rows().items()},
                         {suite[0]: suite[1] for suite in listed()})

    def test_names_are_those_of_the_openssl_that_is_installed(self):
        output = subprocess.run(["openssl", "ciphers", "-V", "-stdname", "ALL:COMPLEMENTOFALL"],
                                capture_output=True, check=True).stdout.decode()
        openssl = {}
        for line in output.splitlines():
            number, _, standard, _, name = line.split()[:5]
            openssl[int(number.replace("0x", "").replace(",", ""), 16)] = (standard, name)
        compared = 0
        for number, (_, iana, name) in self.rows().items():
            if number in openssl:
                self.assertEqual((iana, name), openssl[number])
                compared += 1
            else:
                self.assertEqual(name, "-")
        self.assertGreater(compared, 30)

    def test_unregistered_numbers_have_no_iana_name(self):
        self.assertEqual([number for number, (_, iana, _) in self.rows().items() if iana == "-"],
                         [0x62, 0x64, 0xE013])

    def test_json_holds_the_same(self):
        rows = {row["id"]: (row["name"], row["iana"] or "-", row["openssl"] or "-")
                for row in json.loads(ciphers("--cross-reference", "--json").stdout)}
        self.assertEqual(rows, self.rows())


class WordsTest(CommandTest):
    def test_every_word_is_one_that_the_language_knows(self):
        words = ciphers("--words").stdout.decode().split()
        self.assertEqual(len(words), len(set(words)))
        self.assertEqual(set(suite[1] for suite in listed()) - set(words), set())
        strings = [part for option in ("--default", "--fips", "--common-criteria") for part in (option, "aes")]
        for word in words:
            self.assertEqual(ciphers("--gmssl", *strings, word).returncode, 0, word)


class CompletionTest(CommandTest):
    def bash(self, line, words=None):
        """The replies of bash's completion at the end of `line`; `words` as readline breaks it."""
        words = words or line.split(" ")
        script = ("source %s/tools/completion/tarnutil.bash\n"
                  "COMP_WORDBREAKS=$' \\t\\n\"\\'@><=;|&(:'\n"
                  "COMP_LINE=$1 COMP_POINT=${#1}; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1))\n"
                  "_tarnutil; printf '%%s\\n' \"${COMPREPLY[@]}\"\n" % ROOT)
        process = subprocess.run(["bash", "-c", script, "bash", line, command.COMMAND, *words[1:]],
                                 capture_output=True, check=True)
        return process.stdout.decode().split()

    def test_bash_completes_a_keyword_or_name(self):
        self.assertEqual(self.bash("tarnutil ciphers chacha"), ["chacha20-poly1305"])
        self.assertEqual(self.bash("tarnutil ciphers null-"), ["NULL-SHA", "NULL-MD5"])

    def test_bash_completes_behind_separators_and_operators(self):
        self.assertEqual(self.bash("tarnutil ciphers aes,-cam"),
                         ["aes,-camellia", "aes,-CAMELLIA128-SHA", "aes,-CAMELLIA256-SHA"])
        self.assertEqual(self.bash("tarnutil ciphers ecdhe+export5"), ["ecdhe+export56"])

    def test_bash_replies_with_what_readline_replaces(self):
        self.assertEqual(self.bash("tarnutil ciphers aes:!rc4-m", ["tarnutil", "ciphers", "aes", ":", "!rc4-m"]),
                         ["!RC4-MD5"])
        self.assertEqual(self.bash("tarnutil ciphers aes:@st", ["tarnutil", "ciphers", "aes", ":@", "st"]),
                         ["strength"])

    def test_bash_replies_with_the_whole_string_in_quotes(self):
        self.assertEqual(self.bash("tarnutil ciphers 'aes:!rc4-m", ["tarnutil", "ciphers", "'aes:!rc4-m"]),
                         ["aes:!RC4-MD5"])

    def test_bash_completes_options_and_subcommands(self):
        for line, replies in (("tarnutil ciphers --exp", ["--explain"]),
                              ("tarnutil ciph", ["ciphers"]),
                              ("tarnutil --trace ciph", ["ciphers"]),
                              ("tarnutil token ", ["issue", "check"]),
                              ("tarnutil cert i", ["issuer"]),
                              ("tarnutil token --", ["--help"]),
                              ("tarnutil token issue --u", ["--user"]),
                              ("tarnutil --trace token check --key issue --max", ["--max-age"]),
                              ("tarnutil token issue role=admin ch", []),
                              ("tarnutil digest --", ["--help", "--md5"])):
            with self.subTest(line):
                self.assertEqual(self.bash(line), replies)

    def test_zsh_completes_as_bash_does(self):
        # A shell on a terminal of its own, which types the line and a tabulator and prints what it got.
        script = ("zmodload zsh/zpty\n"
                  "zpty shell \"$(print 'PROMPT= zsh -f -i')\"\n"
                  "zpty -w shell \"PS1=; fpath=($1/tools/completion \\$fpath); path=(${2:h} \\$path); "
                  "autoload -Uz compinit; compinit -u -D; show() { print -r -- \\\"<<\\$BUFFER>>\\\"; }; zle -N show; "
                  "bindkey '^X' show; print rea''dy\"\n"
                  "zpty -r shell out '*ready*'\n"
                  "zpty -n -w shell \"$3\"$'\\t\\x18'\n"
                  "zpty -r shell out '*<<*>>*'\n"
                  "print -r -- ${${out##*<<}%%>>*}\n")
        for line, completed in (("tarnutil ciphers chacha", "tarnutil ciphers chacha20-poly1305"),
                                ("tarnutil ciphers ecdhe+export5", "tarnutil ciphers ecdhe+export56"),
                                ("tarnutil ciphers aes:-rc4-m", "tarnutil ciphers aes:-RC4-MD5"),
                                ("tarnutil ciphers --exp", "tarnutil ciphers --explain"),
                                ("tarnutil token is", "tarnutil token issue"),
                                ("tarnutil token issue --us", "tarnutil token issue --user"),
                                ("tarnutil --trace cert chain --j", "tarnutil --trace cert chain --json")):
            process = subprocess.run(["zsh", "-f", "-c", script, "zsh", str(ROOT), command.COMMAND, line],
                                     capture_output=True, timeout=60, check=True)
            self.assertEqual(process.stdout.decode().strip(), completed)


if __name__ == "__main__":
    main()
