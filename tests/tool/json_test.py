"""--json of compression, decompression and test.  The other commands' tests validate theirs."""

import json

import qrx_schema
from qrx_files import records, with_garbage
from qrx_schema import json_objects
from qrx_tool import MIB, QUARNEX, ToolTest, long_text, posix_only, run, text


class Json(ToolTest):
    def objects(self, *args, **options):
        return json_objects(self.qrx("--json", *args, **options).stdout)

    @posix_only("names are any bytes")
    def test_compress(self):
        self.make_tree({"one": text(5000), "empty": b"", b"a\x1b\xff": b"x"})
        found = self.objects("-15", "one", "empty", b"a\x1b\xff")
        self.assertEqual([(each["command"], each["name"], each["output"]) for each in found],
                         [("compress", "one", "one.qrx"), ("compress", "empty", "empty.qrx"),
                          ("compress", "a\x1b\ufffd", "a\x1b\ufffd.qrx")])
        self.assertEqual([each["original_size"] for each in found], [5000, 0, 1])
        self.assertEqual(found[0]["compressed_size"], len(self.get("one.qrx")))
        self.assertEqual((found[0]["method"], found[0]["level"]), (1, 5))
        self.assertTrue(self.objects("--verify", "-f", "one")[0]["verified"])

    def test_compress_standard_input_of_unknown_size(self):
        content = long_text(2 * MIB + 5)
        found = self.objects("-b1", "-o", "out.qrx", "-", stdin=content)
        self.assertEqual((found[0]["name"], found[0]["output"], found[0]["original_size"]),
                         ("-", "out.qrx", len(content)))

    def test_decompress(self):
        self.make_tree({"one": text(5000), "empty": b""})
        self.qrx("one", "empty")
        found = self.objects("-df", "one.qrx", "empty.qrx")
        self.assertEqual([(each["command"], each["name"], each["output"], each["sealed"])
                          for each in found],
                         [("decompress", "one.qrx", "one", True),
                          ("decompress", "empty.qrx", "empty", True)])

    def test_test(self):
        self.put("plain", long_text(3 * MIB))
        self.qrx("-b1", "plain")
        image = self.get("plain.qrx")
        self.put("bad.qrx", with_garbage(image, 1))
        self.put("cut.qrx", image[:records(image)[1][0]])
        found = self.objects("-t", "plain.qrx", "bad.qrx", "cut.qrx", status=2)
        self.assertEqual([each["damaged"] for each in found], [False, True, True])
        self.assertEqual(found[0]["faults"], [])
        self.assertEqual([(fault["block"], fault["first"], fault["last"])
                          for fault in found[1]["faults"] if "block" in fault],
                         [(1, MIB, 2 * MIB)])
        self.assertTrue(found[2]["faults"])

    def test_files_without_an_object(self):
        self.put("plain", b"not compressed")
        self.assertEqual(self.objects("missing", status=1), [])
        self.assertEqual(self.objects("-t", "plain", status=2), [])

    def test_file_made_by_quarnex(self):
        self.put("plain", text(5000))
        self.assertEqual(run("-33", "plain", "made", program=QUARNEX, cwd=self.dir).returncode, 0)
        self.assertFalse(self.objects("-t", "made/plain.qrx")[0]["sealed"])

    def test_the_schema_names_all_fields_of_the_page(self):
        page = (qrx_schema.FILE.parent / "json.md").read_text()
        definitions = json.loads(qrx_schema.FILE.read_text())["$defs"]
        rows = [line.split("|")[1:3] for line in page.splitlines() if line.startswith("| `")]
        fields = {}
        for command, cells in rows[1:]:
            words = cells.replace("those of `list`", ", ".join(
                f"`{field}`" for field in fields.get("list", []))).replace("`", "").split(",")
            fields[command.strip(" `")] = [word.strip() for word in words]
        documented = {command: {"command", *names} for command, names in fields.items()}
        commands = json.loads(qrx_schema.FILE.read_text())["properties"]["command"]["enum"]
        self.assertEqual(documented, {command: set(definitions[command]["properties"])
                                      for command in commands})

    def test_undocumented_fields_are_noticed(self):
        """The validator of the tests itself."""
        good = {"command": "join", "output": "a", "original_size": 7, "compressed_size": 5,
                "sealed": True, "verified": False, "pieces": ["b"]}
        for change in ({"other": 1}, {"pieces": []}, {"pieces": "b"}, {"command": "unknown"}):
            line = json.dumps({**good, **change}).encode() + b"\n"
            with self.assertRaises(qrx_schema.jsonschema.ValidationError):
                json_objects(line)
        self.assertEqual(json_objects(json.dumps(good).encode()), [good])
