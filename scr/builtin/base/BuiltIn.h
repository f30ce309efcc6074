#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "fnd/Export.h"
#include "scr/Capabilities.h"
#include "scr/FctDescr.h"
#include "scr/call/CallFacts.h"

namespace SCR {

/// One row of the table of built-ins: a function or an operator, with its manual.
struct BuiltIn {
    /// The place in the joined table, from 1; it never changes.
    int number = 0;
    /// "Type name(Type name, out Type name, constant Type name, [Type name, ...])": `out` marks an
    /// assignable variable, `constant` a constant expression, brackets what may be left out, and a
    /// final "..." any number of further arguments. An operator's name ends in its sign.
    std::string_view signature;
    FctDescr::Factory factory = nullptr;
    Effect effects = Effect::None;
    CallFacts facts = {};
    /// The manual text: sentences in Markdown.
    std::string_view manual;
    /// A condition that holds, or statements; the tests run it.
    std::string_view example;
};

/// The name, types and counts that a signature declares, as a descriptor.
std::unique_ptr<FctDescr> describe(const BuiltIn& builtIn);

/// The families; each is defined in the file of its name.
std::span<const BuiltIn> assignmentBuiltIns();
std::span<const BuiltIn> arithmeticBuiltIns();
std::span<const BuiltIn> comparisonBuiltIns();
std::span<const BuiltIn> containerBuiltIns();
std::span<const BuiltIn> stringBuiltIns();
std::span<const BuiltIn> searchBuiltIns();
std::span<const BuiltIn> decodeBuiltIns();
std::span<const BuiltIn> numberBuiltIns();
std::span<const BuiltIn> dateBuiltIns();
std::span<const BuiltIn> fileBuiltIns();
std::span<const BuiltIn> systemBuiltIns();
std::span<const BuiltIn> identifierBuiltIns();

/// All rows of all families in the order of their numbers. Built once; any thread.
KESTREL_API std::span<const BuiltIn* const> builtIns();

}  // namespace SCR
