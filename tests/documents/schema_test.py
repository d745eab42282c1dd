"""Checks share/tracemill.schema.json: golden documents are valid by it, and broken ones are not.

Also follows the references between the tables, which a schema cannot express; docs/output-format.md
promises them.
"""

import copy
import json
import sys
import unittest
from pathlib import Path

try:
    import jsonschema
except ModuleNotFoundError:
    sys.exit("schema_test: the validator is missing. On Debian: apt install python3-jsonschema")

ROOT = Path(__file__).resolve().parents[2]
SCHEMA = ROOT / "share" / "tracemill.schema.json"
# What a run writes that ends with status 1 because the recording has no events: an empty object.
INCOMPLETE = ROOT / "tests" / "golden" / "nothing.json"
GOLDEN = sorted(set((ROOT / "tests" / "golden").glob("*.json")) - {INCOMPLETE})


def read_json(path):
    """Names may hold control bytes, and bytes that are no UTF-8."""
    return json.loads(path.read_text(encoding="utf-8", errors="surrogateescape"), strict=False)


def validator():
    schema = read_json(SCHEMA)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def set_at(document, path, value):
    for step in path[:-1]:
        document = document[step]
    document[path[-1]] = value


def delete_at(document, path):
    for step in path[:-1]:
        document = document[step]
    del document[path[-1]]


def append_at(document, path, value):
    for step in path:
        document = document[step]
    document.append(value)


class GoldenDocumentsTest(unittest.TestCase):
    def test_there_are_many(self):
        self.assertGreater(len(GOLDEN), 20)

    def test_each_is_valid(self):
        checker = validator()
        for path in GOLDEN:
            with self.subTest(path.name):
                checker.validate(read_json(path))

    def test_that_of_a_failed_run_is_not(self):
        self.assertFalse(validator().is_valid(read_json(INCOMPLETE)))

    def test_columns_stand_in_the_order_of_the_schema(self):
        tables = read_json(SCHEMA)["$defs"]
        for path in GOLDEN:
            for name, table in read_json(path).items():
                with self.subTest(path.name, table=name):
                    columns = tables[name]["properties"]["descriptions"]["properties"]
                    self.assertEqual(list(table["descriptions"]), list(columns))

    def test_every_reference_leads_to_a_row(self):
        for path in GOLDEN:
            with self.subTest(path.name):
                self._follow_references(read_json(path))

    def _follow_references(self, document):
        keys = {name: [row[0] for row in table["data"]] for name, table in document.items()}
        for name, own in keys.items():
            self.assertEqual(len(own), len(set(own)), name)
        libraries, functions = set(keys["libraries"]), set(keys["functions"])
        self.assertFalse(libraries & functions)
        for row in document["samples"]["data"]:
            self.assertEqual(row[5], row[6])
            self.assertIn(row[5], keys["processes"])
            for mapkey in [row[2]] + [entry[1] for entry in row[7]]:
                self.assertIn(mapkey, libraries | functions)
        for row in document["libraries"]["data"]:
            # The rows of kernel and stack belong to process 0, which has a row only if it was sampled.
            if row[2] not in ("kernel", "{stack:b0000000-beffffff}"):
                self.assertIn(row[1], keys["processes"])
        for row in document["functions"]["data"]:
            self.assertLessEqual(set(row[4]), libraries)
        for row in document["files"]["data"]:
            self.assertLessEqual({reference for reference, _ in row[2]}, functions)
        self.assertEqual(keys["samples"], list(range(1, len(keys["samples"]) + 1)))
        self.assertEqual(keys["files"], list(range(1, len(keys["files"]) + 1)))


class BrokenDocumentsTest(unittest.TestCase):
    """Every change to a valid document that breaks the format, one at a time."""

    def setUp(self):
        self.checker = validator()
        self.document = read_json(ROOT / "tests" / "golden" / "symbols.json")
        self.assertTrue(self.checker.is_valid(self.document))
        for table in self.document.values():
            self.assertTrue(table["data"])

    def refuses(self, change, *arguments):
        broken = copy.deepcopy(self.document)
        change(broken, *arguments)
        self.assertFalse(self.checker.is_valid(broken), arguments)

    def test_a_document_is_an_object(self):
        for value in ([], None, 1, "samples"):
            self.assertFalse(self.checker.is_valid(value))

    def test_tables_are_all_there_and_no_others(self):
        for name in self.document:
            self.refuses(delete_at, [name])
            self.refuses(set_at, [name], [])
            self.refuses(delete_at, [name, "descriptions"])
            self.refuses(delete_at, [name, "data"])
            self.refuses(set_at, [name, "rows"], [])
        self.refuses(set_at, ["threads"], self.document["processes"])

    def test_columns_are_all_described_in_the_known_words(self):
        for name, table in self.document.items():
            for column in table["descriptions"]:
                self.refuses(delete_at, [name, "descriptions", column])
                self.refuses(set_at, [name, "descriptions", column], "something else")
            self.refuses(set_at, [name, "descriptions", "weight"], "one column more")

    def test_rows_have_all_columns_and_no_others(self):
        for name, table in self.document.items():
            self.refuses(delete_at, [name, "data", 0, len(table["data"][0]) - 1])
            self.refuses(append_at, [name, "data", 0], 0)
            self.refuses(set_at, [name, "data", 0], {})

    def test_values_are_of_the_columns_type(self):
        wrong = {
            int: ["1", -1, 1.5, None, 1 << 64],
            float: ["1", None],
            str: [1, None],
            list: [{}, None],
        }
        for name, table in self.document.items():
            for column, value in enumerate(table["data"][0]):
                # Times may be written without a fraction.
                kind = float if (name, column) == ("samples", 3) else type(value)
                for bad in wrong[kind]:
                    self.refuses(set_at, [name, "data", 0, column], bad)

    def test_nested_pairs_are_pairs_of_numbers(self):
        for path in (["samples", "data", 0, 7], ["files", "data", 0, 2]):
            for bad in ([1], [1, 2, 3], [1, "2"], [-1, 2], 1, []):
                self.refuses(append_at, path, bad)
        self.refuses(append_at, ["functions", "data", 0, 4], "0")

    def test_tids_and_cpus_have_32_bits(self):
        for path in ([0, 4], [0, 5], [0, 6]):
            self.refuses(set_at, ["samples", "data", *path], 1 << 32)
        for column in range(3):
            self.refuses(set_at, ["processes", "data", 0, column], 1 << 32)

    def test_keys_of_samples_and_files_begin_at_1(self):
        self.refuses(set_at, ["samples", "data", 0, 0], 0)
        self.refuses(set_at, ["files", "data", 0, 0], 0)

    def test_there_is_no_sample_at_address_0(self):
        self.refuses(set_at, ["samples", "data", 0, 1], 0)


if __name__ == "__main__":
    unittest.main()
