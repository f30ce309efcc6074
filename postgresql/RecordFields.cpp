#include "postgresql/RecordFields.h"

#include <cstring>

extern "C" {
#include <utils/builtins.h>
#include <utils/memutils.h>
#include <utils/numeric.h>
}

namespace PgApi {

namespace {

// Errors of the server leave these functions by longjmp: no object here has a destructor.

Jsonb* recordS = nullptr;
// What the server takes to find a field, until the next one is looked for: a script may look for
// millions.
MemoryContext fieldsS = nullptr;
bool hasErrorS = false;  // it lies on the server's stack of errors

// Writes a number as numeric_out does. Gives the length, or 0 for one that is too long for that or
// none. The layout is that of tables on disk.
std::size_t spellNumber(Numeric number, char* to) {
    constexpr int mostGroups = 16;
    constexpr int mostPlaces = 64;
    const char* const data = VARDATA_ANY(number);
    uint16 head = 0;
    std::memcpy(&head, data, sizeof(head));
    if ((head & 0xC000) == 0xC000) return 0;  // not a number, infinity
    const bool isShort = (head & 0x8000) != 0;
    int16 weight = 0;  // of the first group of four digits
    if (isShort) {
        weight = static_cast<int16>((head & 0x3F) - ((head & 0x40) != 0 ? 0x40 : 0));
    } else {
        std::memcpy(&weight, data + sizeof(head), sizeof(weight));
    }
    const bool isNegative = (head & (isShort ? 0x2000 : 0x4000)) != 0;
    const int places = isShort ? (head & 0x1F80) >> 7 : head & 0x3FFF;
    if (weight >= mostGroups || places > mostPlaces) return 0;
    const std::size_t headSize = sizeof(head) + (isShort ? 0 : sizeof(weight));
    const char* const groups = data + headSize;
    const int count = static_cast<int>((VARSIZE_ANY_EXHDR(number) - headSize) / sizeof(int16));
    const auto group = [=](int index) {
        int16 digits = 0;
        if (index >= 0 && index < count) {
            std::memcpy(&digits, groups + static_cast<std::size_t>(index) * sizeof(digits),
                        sizeof(digits));
        }
        return digits;
    };
    char* at = to;
    if (isNegative) *at++ = '-';
    if (weight < 0) *at++ = '0';
    for (int i = 0; i <= weight; ++i) {
        const int digits = group(i);
        bool isLeading = i == 0;
        for (int unit = 1000; unit > 0; unit /= 10) {
            isLeading = isLeading && digits < unit && unit > 1;
            if (!isLeading) *at++ = static_cast<char>('0' + digits / unit % 10);
        }
    }
    if (places > 0) *at++ = '.';
    int written = 0;
    for (int i = weight + 1; written < places; ++i) {
        const int digits = group(i);
        for (int unit = 1000; unit > 0 && written < places; unit /= 10, ++written) {
            *at++ = static_cast<char>('0' + digits / unit % 10);
        }
    }
    return static_cast<std::size_t>(at - to);
}

bool isWordByte(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '_';
}

// Whether a script may mean the member `name` by `written`, whose "_" also stands for a byte that
// names in scripts cannot have.
bool isAlike(const JsonbValue& name, const Name& written) {
    if (static_cast<std::size_t>(name.val.string.len) != written.size) return false;
    for (std::size_t i = 0; i < written.size; ++i) {
        const char byte = name.val.string.val[i];
        if (byte != written.data[i] && (written.data[i] != '_' || isWordByte(byte))) return false;
    }
    return true;
}

bool findMember(JsonbContainer* object, const Name& name, JsonbValue& value) {
    if (getKeyJsonValueFromContainer(object, name.data, static_cast<int>(name.size), &value) !=
        nullptr) {
        return true;
    }
    if (std::memchr(name.data, '_', name.size) == nullptr) return false;
    JsonbIterator* iterator = JsonbIteratorInit(object);
    JsonbValue part;
    bool isFound = false;
    while (true) {
        const JsonbIteratorToken token = JsonbIteratorNext(&iterator, &part, true);
        if (token == WJB_DONE) return isFound;
        if (token != WJB_KEY || !isAlike(part, name)) continue;
        JsonbIteratorNext(&iterator, &value, true);
        isFound = true;  // the last one counts, as in other records
    }
}

// Goes along the path to `value`. False, with what is in the way in `field`, when it ends before.
bool follow(const Path& path, JsonbValue& value, Field& field) {
    if (!findMember(&recordS->root, path.names[0], value)) return false;
    std::size_t name = 1;
    std::size_t index = 0;
    while (name < path.nameCount || index < path.indexCount) {
        JsonbContainer* const inside = value.type == jbvBinary ? value.val.binary.data : nullptr;
        if (inside != nullptr && JsonContainerIsArray(inside) && index < path.indexCount) {
            const auto size = static_cast<long>(JsonContainerSize(inside));
            const long asked = path.indices[index++];
            const long at = asked < 0 ? asked + size : asked;
            if (at < 0 || at >= size) return false;
            value = *getIthJsonbValueFromContainer(inside, static_cast<uint32>(at));
        } else if (inside != nullptr && JsonContainerIsObject(inside) && name < path.nameCount) {
            if (!findMember(inside, path.names[name++], value)) return false;
        } else {
            field.isBroken = value.type != jbvNull;
            return false;
        }
    }
    return true;
}

void describe(const JsonbValue& value, bool isSpelled, Field& field) {
    static char spelled[256];
    switch (value.type) {
        case jbvNull:
            field.kind = Field::Kind::Null;
            break;
        case jbvString:
            field.kind = Field::Kind::Text;
            field.data = value.val.string.val;
            field.size = static_cast<std::size_t>(value.val.string.len);
            break;
        case jbvBool:
            field.kind = value.val.boolean ? Field::Kind::True : Field::Kind::False;
            field.data = value.val.boolean ? "true" : "false";
            field.size = std::strlen(field.data);
            break;
        case jbvNumeric:
            field.kind = Field::Kind::Number;
            if (!isSpelled) break;
            field.data = spelled;
            field.size = spellNumber(value.val.numeric, spelled);
            if (field.size == 0) {
                field.data = DatumGetCString(
                    DirectFunctionCall1(numeric_out, NumericGetDatum(value.val.numeric)));
                field.size = std::strlen(field.data);
            }
            break;
        default: {
            JsonbContainer* const inside = value.val.binary.data;
            field.kind = JsonContainerIsArray(inside) ? Field::Kind::Array : Field::Kind::Object;
            field.elements = static_cast<long>(JsonContainerSize(inside));
            if (!isSpelled) break;
            field.data = JsonbToCString(nullptr, inside, value.val.binary.len);
            field.size = std::strlen(field.data);
        }
    }
}

}  // namespace

void openRecord(Jsonb* record) {
    recordS = record;
    hasErrorS = false;
    if (fieldsS == nullptr) {
        // The macro of the server is no C++.
        fieldsS = AllocSetContextCreateInternal(TopMemoryContext, "kestrel fields",
                                                ALLOCSET_DEFAULT_SIZES);
    }
    MemoryContextReset(fieldsS);
}

bool findField(const Path& path, bool isSpelled, Field& field) noexcept {
    if (hasErrorS) return false;
    const MemoryContext before = CurrentMemoryContext;
    PG_TRY();
    {
        MemoryContextReset(fieldsS);
        MemoryContextSwitchTo(fieldsS);
        JsonbValue value;
        if (follow(path, value, field)) describe(value, isSpelled, field);
        MemoryContextSwitchTo(before);
    }
    PG_CATCH();
    {
        // It is raised again when no C++ is left on the stack.
        MemoryContextSwitchTo(before);
        hasErrorS = true;
    }
    PG_END_TRY();
    return !hasErrorS;
}

void raiseOfFields() {
    if (!hasErrorS) return;
    hasErrorS = false;
    PG_RE_THROW();
}

}  // namespace PgApi
