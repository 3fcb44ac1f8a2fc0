"""Standard streams: pipes, redirections, offsets, closed streams."""

from qrx_tool import MIB, ToolTest, long_text


class Pipes(ToolTest):
    def test_both_ways_through_pipes(self):
        for size in (0, 1, 100000):
            content = long_text(size)
            self.assertEqual(self.original(self.compressed(content)), content)

    def test_more_than_a_block_of_unknown_size(self):
        for size in (MIB - 1, MIB, MIB + 1, 2 * MIB, 3 * MIB + 17):
            content = long_text(size)
            self.assertEqual(self.original(self.compressed(content, "-b1", "-1")), content, size)
