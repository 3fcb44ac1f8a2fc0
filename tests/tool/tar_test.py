"""qrx as the compressor of tar and with find and xargs."""

import os

from qrx_tool import MIB, ToolTest, long_text, random_bytes, text


class Tar(ToolTest):
    def setUp(self):
        super().setUp()
        self.tree = {"tree/one": text(30000), "tree/empty": b"", "tree/sub/two": random_bytes(5000),
                     "tree/sub/three": long_text(2 * MIB + 5)}
        self.make_tree(self.tree)

    def extracted(self, command):
        """Runs a command that extracts the tree into the directory `out`; returns its files."""
        (self.dir / "out").mkdir()
        self.shell(command)
        return {name: self.get(f"out/{name}") for name in self.tree}

    def test_create_list_and_extract(self):
        self.shell("tar -I qrx -cf tree.tar.qrx tree")
        self.qrx("-t", "tree.tar.qrx")
        listed = self.shell("tar -I qrx -tf tree.tar.qrx").stdout.split()
        self.assertEqual(sorted(listed), sorted([b"tree/", b"tree/sub/"] +
                                                [name.encode() for name in self.tree]))
        self.assertEqual(self.extracted("tar -I qrx -xf tree.tar.qrx -C out"), self.tree)

    def test_with_options(self):
        self.shell("tar -I 'qrx -3 -b1 -T2' -cf tree.tar.qrx tree")
        self.assertEqual(self.extracted("tar -I 'qrx -T1' -xf tree.tar.qrx -C out"), self.tree)

    def test_to_a_pipe_and_from_a_pipe(self):
        self.shell("tar -I 'qrx -b1' -cf - tree | cat > tree.tar.qrx")
        self.assertEqual(self.extracted("cat tree.tar.qrx | tar -I qrx -xf - -C out"), self.tree)

    def test_long_option_and_one_file(self):
        self.shell("tar --use-compress-program=qrx -cf tree.tar.qrx tree")
        self.shell("tar --use-compress-program=qrx -xf tree.tar.qrx tree/one -O > one")
        self.assertEqual(self.get("one"), self.tree["tree/one"])

    def test_tar_in_a_pipeline(self):
        self.assertEqual(self.extracted("tar -c tree | qrx -1 | qrx -d | tar -x -C out"), self.tree)

    def test_damage_fails_the_extraction(self):
        self.shell("tar -I 'qrx -b1' -cf tree.tar.qrx tree")
        damaged = bytearray(self.get("tree.tar.qrx"))
        damaged[len(damaged) // 2] ^= 0x55
        self.put("tree.tar.qrx", damaged)
        self.shell("tar -I qrx -xf tree.tar.qrx -O > /dev/null", status=2)


class Xargs(ToolTest):
    def test_several_processes_with_several_files(self):
        files = {f"d {index}/name\n{index}": text(1000 + index, index) for index in range(20)}
        self.make_tree(files)
        self.shell("find . -type f -print0 | xargs -0 -P2 -n3 qrx --rm")
        self.assertEqual(self.files(), sorted(f"{name}.qrx" for name in files))
        self.shell("find . -type f -print0 | xargs -0 -P2 -n3 qrx -d --rm")
        self.assertEqual({name: self.get(name) for name in self.files()}, files)

    def test_status_of_one_bad_file(self):
        self.make_tree({"good.qrx": self.compressed(b"good"), "bad.qrx": b"no qrx file",
                        "other.qrx": self.compressed(b"other")})
        self.shell("find . -type f -print0 | xargs -0 -n1 qrx -d", status=123)
        self.assertEqual(self.get("good") + self.get("other"), b"goodother")
        self.assertFalse(os.path.exists(self.dir / "bad"))
