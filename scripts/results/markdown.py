"""Markdown tables and paragraphs."""

import textwrap


def markdown_table(head, rows):
    """Returns a table as text; cells may have any type."""
    lines = ["| " + " | ".join(str(cell).replace("|", "\\|") for cell in line) + " |\n" for line in (head, *rows)]
    lines.insert(1, "|---" * len(head) + "|\n")
    return "".join(lines).replace("|  |", "| |")


def wrapped(text, width=120):
    """Wraps paragraphs and list items; tables and images stay as they are."""
    lines = []
    for line in text.split("\n"):
        if len(line) <= width or line.startswith(("|", "!")):
            lines.append(line)
        else:
            lines += textwrap.wrap(line, width, break_long_words=False, break_on_hyphens=False,
                                   subsequent_indent="  " if line.startswith("- ") else "")
    return "\n".join(lines)
