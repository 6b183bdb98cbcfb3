// A generic `for` of compiled code under way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "exec/machine.h"
#include "library/natives.h"
#include "library/patterns.h"
#include "value/table.h"

struct Machine::Walk {
    enum class Kind : std::uint8_t {
        Pairs,     // of an array: position and element, against its live size
        Elements,  // of an array, spread over several names; up to the size at its start
        Sequence,  // of a table: "1", "2", ... up to its border
        Keys,      // of a table
        Matches,
        Bytes,
    };
    Kind kind = Kind::Pairs;
    std::size_t nameCount = 0;
    Variable container;  // or the text
    std::size_t index = 0;
    std::size_t count = 0;
    std::shared_ptr<const TableSnapshot> snapshot;
    std::unique_ptr<GmatchWalk> matches;
    ByteRange bytes;

    void clear() {
        container.setNil();
        snapshot.reset();
        matches.reset();
    }
};
