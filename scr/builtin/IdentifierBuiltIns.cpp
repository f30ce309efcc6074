#include <cstdint>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"

namespace SCR {

namespace {

using FND::Identifier;

struct NexidSet final
    : BuiltInNode<NexidSet, BoolType(Out<NexidType>, LongType, StringType, LongType, LongType)> {
    static bool value(Interpreter& /*interpreter*/, NexidDataNode& target, long id,
                      const FND::String& type, long db, long rev) {
        return target.set(Identifier(db, type, id, static_cast<std::int32_t>(rev)));
    }
};

struct NexidToStr final : BuiltInNode<NexidToStr, StringType(NexidType)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, const Identifier& nexid) {
        nexid.format(result);
    }
};

struct NexidTypeName final : BuiltInNode<NexidTypeName, StringType(NexidType)> {
    static void value(Interpreter& /*interpreter*/, FND::String& result, const Identifier& nexid) {
        result = nexid.type();
    }
};

struct NexidId final : BuiltInNode<NexidId, LongType(NexidType)> {
    static long value(Interpreter& /*interpreter*/, const Identifier& nexid) { return nexid.id(); }
};

struct NexidDb final : BuiltInNode<NexidDb, LongType(NexidType)> {
    static long value(Interpreter& /*interpreter*/, const Identifier& nexid) { return nexid.db(); }
};

struct NexidRev final : BuiltInNode<NexidRev, LongType(NexidType)> {
    static long value(Interpreter& /*interpreter*/, const Identifier& nexid) { return nexid.rev(); }
};

constexpr BuiltIn identifierBuiltInsS[] = {
    {.number = 109,
     .signature = "Bool nexidSet(out Nexid nexid, Long id, String type, Long db, Long rev)",
     .factory = NexidSet::factory,
     .manual = "Sets the four fields of `nexid` and gives true. Of `type` at most the first 254 "
               "bytes are kept, and those before its first NUL; of `rev` the low 32 bits, with "
               "sign. Mind the order, which is not that of the text of an identifier.",
     .example =
         R"(Nexid n; nexidSet(n, 42, "/account", 1, 0); nexidToStr(n) == "1:/account:42:0")"},
    {.number = 110,
     .signature = "String nexidToStr(Nexid nexid)",
     .factory = NexidToStr::factory,
     .manual = "Database number, type, id and revision, separated by colons.",
     .example = R"(nexidToStr(NULL_NEXID) == "0::0:0")"},
    {.number = 111,
     .signature = "String nexidType(Nexid nexid)",
     .factory = NexidTypeName::factory,
     .manual = "The object type name.",
     .example = R"(Nexid n; nexidSet(n, 42, "/account", 1, 0); nexidType(n) == "/account")"},
    {.number = 112,
     .signature = "Long nexidId(Nexid nexid)",
     .factory = NexidId::factory,
     .manual = "The object id.",
     .example = R"(Nexid n; nexidSet(n, 42, "/account", 1, 0); nexidId(n) == 42)"},
    {.number = 113,
     .signature = "Long nexidDb(Nexid nexid)",
     .factory = NexidDb::factory,
     .manual = "The database number.",
     .example = R"(Nexid n; nexidSet(n, 42, "/account", 1, 0); nexidDb(n) == 1)"},
    {.number = 114,
     .signature = "Long nexidRev(Nexid nexid)",
     .factory = NexidRev::factory,
     .manual = "The revision, from -2147483648 to 2147483647.",
     .example = R"(Nexid n; nexidSet(n, 42, "/account", 1, 4294967295); nexidRev(n) == -1)"},
};

}  // namespace

std::span<const BuiltIn> identifierBuiltIns() { return identifierBuiltInsS; }

}  // namespace SCR
