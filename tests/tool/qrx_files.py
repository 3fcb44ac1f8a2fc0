"""Takes .qrx files apart, and makes damaged ones."""

import struct

HEADER = 32
HEAD = 5


def header(original_size, block_mib=1, method=3, level=3):
    """Returns the header of a file."""
    return struct.pack("<4sQ4B2BHII4x", b"\0QR0", original_size, method, level, 0, 0, 0, 0,
                       block_mib, 23, 1)


def record(payload, displacement=0):
    return struct.pack("<IB", len(payload), displacement) + payload


def records(image):
    """Returns the offset and size of each record's payload, in the order of the file."""
    found = []
    position = HEADER
    while len(image) - position >= HEAD:
        size = struct.unpack_from("<I", image, position)[0]
        found.append((position + HEAD, size))
        position += HEAD + size
    return found


def extents(image):
    """Returns the start and end of each record, in the order of the file."""
    return [(offset - HEAD, offset + size) for offset, size in records(image)]


def block_of(image, sequence, offset):
    """Returns the number of the block of a record, given the record's number and its payload's offset."""
    displacement = image[offset - 1]
    distance = displacement >> 1
    return sequence + (-distance if displacement & 1 else distance)


def payloads(image):
    """Returns the payloads in the order of their blocks, and what follows the last record, such as the seal.

    Raises ValueError if a record is cut off, or if a block is missing or occurs twice.
    """
    blocks = {}
    end = HEADER
    for sequence, (offset, size) in enumerate(records(image)):
        blocks[block_of(image, sequence, offset)] = image[offset:offset + size]
        end = offset + size
    if end > len(image) or sorted(blocks) != list(range(len(records(image)))):
        raise ValueError("not a complete .qrx file")
    return [blocks[block] for block in sorted(blocks)], image[end:]


def with_size(image, original_size):
    """Returns a file whose header claims another size of the original."""
    return image[:4] + struct.pack("<Q", original_size) + image[12:]


def with_garbage(image, *blocks):
    """Returns a file in which the payloads of some records are overwritten."""
    damaged = bytearray(image)
    places = records(image)
    for block in blocks:
        offset, size = places[block]
        damaged[offset:offset + size] = b"\xa5" * size
    return bytes(damaged)


def without_seal(image):
    return image[:-4]
