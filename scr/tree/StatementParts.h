#pragma once

#include <cstddef>
#include <memory>

#include "scr/Statement.h"
#include "scr/code/Hot.h"
#include "scr/run/NodeMemory.h"
#include "scr/tree/NameTable.h"

namespace SCR {

/// The statements of a block, its identifiers, and its code when it is the body of a function.
struct StatementList::Parts : InNodeMemory {
    NodeList statements;
    std::unique_ptr<NameTable<Variable>> identifiers;  ///< none for the many without one
    Code::Hot hot;

    /// Executes the statements in order up to the first that gives a code other than `goOn`.
    std::int32_t run() const { return runFrom(0); }
    /// The same from the statement number `next` on.
    std::int32_t runFrom(std::size_t next) const;
    void lower(Code::Builder& code) const;

    /// Executes the body of a function: its code, which is made when it has run often enough.
    std::int32_t runBody() {
        if (hot || hot.count([&](Code::Builder& code) { lower(code); })) return hot.run();
        return run();
    }

private:
    static long runRest(RunControl& control, long list, long next, long unused);
};

}  // namespace SCR
