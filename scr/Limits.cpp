#include "scr/Limits.h"

#include <array>

namespace SCR {

namespace {

struct NamedLimit {
    const char* name;
    std::int64_t Limits::*limit;
};

constexpr std::array<NamedLimit, 11> limitsS{{
    {"steps", &Limits::steps},
    {"depth", &Limits::depth},
    {"time", &Limits::time},
    {"string", &Limits::string},
    {"elements", &Limits::elements},
    {"memory", &Limits::memory},
    {"nesting", &Limits::nesting},
    {"source", &Limits::source},
    {"states", &Limits::states},
    {"patterns", &Limits::patterns},
    {"automata", &Limits::automata},
}};

}  // namespace

std::int64_t Limits::*limitOfName(const FND::String& name) {
    for (const NamedLimit& entry : limitsS) {
        if (name == entry.name) return entry.limit;
    }
    return nullptr;
}

}  // namespace SCR
