#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A bill of materials, against the form and against the binary that it is about.

  sbom_test.py BILL BINARY VERSION
"""

import json
import re
import subprocess
import sys
import unittest

VERSION = sys.argv.pop()
BINARY = sys.argv.pop()
with open(sys.argv.pop(), encoding="utf-8") as file:
    BILL = json.load(file)

# The component that each needed library belongs to; none for the platform's own runtimes.
COMPONENTS = {
    "libtarnutil.so.1": "libtarnutil",
    "libssl": "openssl",
    "libcrypto": "openssl",
    "libc.so.6": None,
    "libm.so.6": None,
    "libstdc++.so.6": None,
    "libgcc_s.so.1": None,
}
TYPES = {"library", "application"}


def subject():
    return BILL["metadata"]["component"]


def by_reference():
    return {component["bom-ref"]: component for component in [subject(), *BILL["components"]]}


def properties(component):
    return {entry["name"]: entry["value"] for entry in component.get("properties", [])}


def needed():
    dynamic = subprocess.run(["readelf", "--wide", "--dynamic", BINARY], capture_output=True,
                             text=True, check=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)


class FormTest(unittest.TestCase):
    def test_it_says_which_form_it_has(self):
        self.assertEqual((BILL["bomFormat"], BILL["specVersion"], BILL["version"]),
                         ("CycloneDX", "1.5", 1))
        self.assertRegex(BILL["serialNumber"],
                         r"^urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-[1-5][0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$")

    def test_every_component_has_a_reference_of_its_own_a_type_and_a_version(self):
        self.assertEqual(len(by_reference()), 1 + len(BILL["components"]))
        for reference, component in by_reference().items():
            with self.subTest(reference):
                self.assertIn(component["type"], TYPES)
                self.assertRegex(component["version"], r"^\d+(\.\d+)+[a-z]*$")
                self.assertEqual(component["purl"],
                                 "pkg:generic/" + component["name"] + "@" + component["version"])

    def test_the_graph_names_every_component_once_and_no_other(self):
        graph = {node["ref"]: node["dependsOn"] for node in BILL["dependencies"]}
        self.assertEqual(len(graph), len(BILL["dependencies"]))
        self.assertEqual(set(graph), set(by_reference()))
        for needs in graph.values():
            self.assertLessEqual(set(needs), set(by_reference()))
        reached = {subject()["bom-ref"]}
        for _ in graph:
            reached |= {need for node in reached for need in graph[node]}
        self.assertEqual(reached, set(graph))

    def test_no_place_of_the_machine_is_in_it(self):
        self.assertNotRegex(json.dumps(BILL), r"/(usr|home|tmp|build)/|@@|@\w+@")


class ContentTest(unittest.TestCase):
    def test_its_subject_is_the_release(self):
        self.assertEqual(subject()["version"], VERSION)
        self.assertEqual(subject()["licenses"], [{"license": {"id": "Apache-2.0"}}])

    def test_it_names_what_the_binary_loads_and_nothing_else_as_loaded(self):
        loaded = {COMPONENTS[name if name in COMPONENTS else name.split(".so")[0]] for name in needed()}
        self.assertEqual(loaded - {None}, {
            reference for reference, component in by_reference().items()
            if properties(component).get("tarnutil:linkage") == "dynamic"})

    def test_it_says_which_openssl_it_was_built_with_and_which_will_do(self):
        openssl = by_reference()["openssl"]
        built = subprocess.run(["pkg-config", "--modversion", "openssl"], capture_output=True,
                               text=True, check=True).stdout.strip()
        self.assertEqual(openssl["version"], built)
        self.assertEqual(properties(openssl)["tarnutil:requires"], ">= 1.0.2")


unittest.main()
