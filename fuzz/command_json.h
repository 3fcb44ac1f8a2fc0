// fuzz/command_json.h - reads and checks the JSON that commands of qrx print
#pragma once

#include "fuzz_target.h"
#include "support/temp_dir.h"
#include "tool/json.h"

#include <sstream>
#include <string>

namespace quarnex::fuzz {

/// Requires that faults are in the original.
inline void check_faults(const tool::json& object)
{
    for (const tool::json& fault : object.at("faults")) {
        require(fault.at("what").is_string(), "a fault has a text");
        if (!fault.contains("block")) continue;
        require(fault.at("first").get<u64>() <= fault.at("last").get<u64>() &&
                    fault.at("last").get<u64>() <= object.at("original_size").get<u64>(),
                "a fault is in the original");
    }
}

/// Requires that the parts of a map follow each other.
inline void check_map(const tool::json& object)
{
    u64 block = 0;
    u64 offset = 0;
    for (const tool::json& part : object.at("map")) {
        require(part.at("first_block").get<u64>() == block && part.at("first").get<u64>() == offset,
                "the parts of a map follow each other");
        block += part.at("blocks").get<u64>();
        offset = part.at("last").get<u64>();
        require(offset >= part.at("first").get<u64>(), "a part of a map has a size");
    }
    require(block == object.at("blocks").get<u64>() &&
                offset == object.at("original_size").get<u64>(),
            "a map is complete");
}

/// Requires that ranges follow each other from 0 to `end`.
inline void check_pieces(const tool::json& pieces, u64 end)
{
    u64 offset = 0;
    for (const tool::json& piece : pieces) {
        require(piece.at("first").get<u64>() == offset, "pieces follow each other");
        offset = piece.at("last").get<u64>();
        const bytes content = test::read_file(piece.at("name").get<std::string>());
        require(content.size() == piece.at("compressed_size").get<u64>(), "a piece has its size");
    }
    require(offset == end, "the pieces are complete");
}

/// Requires that the lost ranges are in order, and that all other bytes were recovered.
inline void check_lost(const tool::json& object)
{
    const u64 original_size = object.at("original_size").get<u64>();
    u64 lost = 0;
    u64 offset = 0;
    for (const tool::json& range : object.at("lost")) {
        const u64 first = range.at("first").get<u64>();
        require(first >= offset, "lost ranges are in order");
        offset = range.at("last").get<u64>();
        require(offset > first && offset <= original_size, "a lost range is in the original");
        lost += offset - first;
    }
    require(object.at("recovered").get<u64>() == original_size - lost,
            "what isn't lost is recovered");
}

/// Returns the object about `name` in the output of `qrx COMMAND`, which ended with `status`; null
/// if there is none.
inline tool::json read_object(const bytes& output, int status, const std::string& command,
                              const std::string& name)
{
    std::istringstream lines(std::string(output.begin(), output.end()));
    tool::json object;
    usize count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        object = tool::json::parse(line, nullptr, false);
        require(object.is_object() && object.at("command") == command &&
                    object.at(command == "join" ? "output" : "name") == name,
                "each line is an object with the command and the name");
        if (object.contains("faults")) check_faults(object);
        if (object.contains("map")) check_map(object);
        if (object.contains("lost")) check_lost(object);
        if (command == "split") check_pieces(object.at("pieces"), object.at("original_size"));
        if (object.contains("damaged"))
            require(object.at("damaged") == (status == tool::exit_damaged),
                    "an object and the exit status agree");
    }
    require(count == 1 || (count == 0 && status != tool::exit_good),
            "there is one object, unless the command fails");
    return object;
}

} // namespace quarnex::fuzz
