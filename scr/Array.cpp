#include "scr/Array.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "scr/run/RunControl.h"
#include "scr/value/ElementClass.h"
#include "scr/value/PlainBlock.h"
#include "scr/value/Slots.h"

namespace SCR {

namespace {

// Values that are never referred to, so that they may move.
bool mayBePlain(const Variable& prototype) {
    const int type = Node::baseType(prototype.dataType());
    return (type == TypeCode::Long || type == TypeCode::Bool) &&
           ElementClass::ofValues(prototype) != nullptr;
}

}  // namespace

Array::Array(Variable* prototype)
    : Variable(TypeCode::Array),
      ownsPrototype_(true),
      keepsValues_(ElementClass::ofValues(*prototype) != nullptr),
      isPlain_(mayBePlain(*prototype)),
      prototype_(prototype),
      elementClass_(keepsValues_ ? ElementClass::ofValues(*prototype)
                                 : &ElementClass::of(*prototype)) {}

Array::Array(const Array& source, Variable* sharedPrototype)
    : Variable(source.dataType()),
      ownsPrototype_(false),
      keepsValues_(source.keepsValues_),
      isPlain_(source.isPlain_),
      prototype_(sharedPrototype),
      elementClass_(source.elementClass_) {
    try {
        copyElements(source);
    } catch (...) {
        freeElements();
        throw;
    }
}

Array::~Array() {
    freeElements();
    if (ownsPrototype_) delete prototype_;
}

Variable* Array::clone() const {
    std::unique_ptr<Variable> prototype(prototype_->clone());
    std::unique_ptr<Array> copy(new Array(prototype.release()));
    copy->dataType(dataType());
    copy->copyElements(*this);
    return copy.release();
}

Variable* Array::at(unsigned long index, unsigned long limit) {
    if (keepsValues_ && !makeVariables()) return nullptr;
    if (!make(index, limit)) return nullptr;
    return elementClass_->element(Slots::find(chunks_, index, elementClass_->size));
}

bool Array::make(unsigned long index, unsigned long limit) {
    if (index >= size_ && index >= std::min(limit, maxSizeCM)) return false;
    try {
        if (isPlain_ && PlainBlocks::isTooFar(block_, index)) spread();
        if (isPlain_) {
            PlainBlocks::reserve(block_, index + 1, elementClass_->size, valueOfNew());
        } else if (const std::size_t chunk = Slots::chunkOf(index);
                   !Slots::exists(chunks_, chunk)) {
            makeChunk(chunk);
        }
    } catch (const std::exception&) {
        return false;
    }
    size_ = std::max(size_, index + 1);
    if (isPlain_) block_.size = size_;
    return true;
}

bool Array::keepPlaces() noexcept {
    try {
        if (isPlain_) spread();
    } catch (const ScriptStopped&) {
        // The script stops when the caller is done.
        if (RunControl* const control = RunControl::current()) control->stopLater();
        return false;
    } catch (...) {
        return false;
    }
    return true;
}

const std::byte* Array::valueOfNew() const {
    if (elementClass_->size == sizeof(bool)) {
        return reinterpret_cast<const std::byte*>(&static_cast<BoolVariable*>(prototype_)->value());
    }
    return reinterpret_cast<const std::byte*>(&static_cast<LongVariable*>(prototype_)->value());
}

void Array::spread() {
    const std::size_t size = size_;
    try {
        for (std::size_t chunk = 0; size > 0 && chunk <= Slots::chunkOf(size - 1); ++chunk) {
            makeChunk(chunk);
            const std::size_t first = Slots::firstOf(chunk);
            const std::size_t count = std::min(size - first, Slots::slotsOf(chunk));
            countWork(count * elementClass_->size);
            std::memcpy(chunks_[chunk].slots, block_.values + first * elementClass_->size,
                        count * elementClass_->size);
        }
    } catch (...) {
        for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) freeChunk(chunk);
        Slots::trim(chunks_, 0);
        throw;
    }
    isPlain_ = false;
    PlainBlocks::clear(block_);
}

// Variables of plain values need no destruction, so it is safe when memory runs out at any step.
bool Array::makeVariables() {
    const ElementClass& variables = ElementClass::of(*prototype_);
    OwnedSlots made;
    std::unique_ptr<OwnedSlots> former;
    try {
        if (isPlain_) spread();
        if (!chunks_.empty()) former = std::make_unique<OwnedSlots>();
        Slots::extend(made.chunks, chunks_.size());
        for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
            const std::byte* from = chunks_[chunk].slots;
            if (from == nullptr) continue;
            std::byte* to = Slots::allocate(made.chunks, chunk, variables.size);
            const std::size_t count = Slots::slotsOf(chunk);
            countWork(count * variables.size);
            variables.construct(to, count, *prototype_);
            for (std::size_t i = 0; i < count; ++i) {
                elementClass_->load(*variables.element(to), from);
                from += elementClass_->size;
                to += variables.size;
            }
        }
    } catch (const std::exception&) {
        return false;
    }
    if (former) former->chunks.swap(chunks_);
    chunks_.swap(made.chunks);
    formerValues_ = std::move(former);
    elementClass_ = &variables;
    keepsValues_ = false;
    return true;
}

std::size_t Array::heapBytes() const {
    std::size_t bytes =
        PlainBlocks::heapBytes(block_) + Slots::heapBytes(chunks_, elementClass_->size);
    if (formerValues_) {
        bytes += Slots::heapBytes(formerValues_->chunks, ElementClass::ofValues(*prototype_)->size);
    }
    if (elementClass_->heapBytes == nullptr) return bytes;
    for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
        const std::byte* const slots = chunks_[chunk].slots;
        if (slots == nullptr) continue;
        countWork(Slots::slotsOf(chunk) * elementClass_->size);
        bytes += elementClass_->heapBytes(slots, Slots::slotsOf(chunk));
    }
    return bytes;
}

void Array::truncate(unsigned long count) {
    if (count >= size_) return;
    if (isPlain_) {
        PlainBlocks::truncate(block_, count, elementClass_->size, valueOfNew());
        size_ = count;
        return;
    }
    if (count == 0) formerValues_.reset();
    constexpr unsigned long kept = 64;
    const unsigned long firstToFree = std::max(kept, 2 * count);
    // From the last one that exists, as an earlier call may have left some without elements.
    std::size_t chunk = chunks_.size();
    while (chunk-- > Slots::chunkOf(count)) {
        const std::size_t first = Slots::firstOf(chunk);
        if (first >= firstToFree) {
            freeChunk(chunk);
        } else if (first >= size_) {
            chunk = Slots::chunkOf(size_ - 1) + 1;
        } else if (std::byte* const slots = chunks_[chunk].slots) {
            const std::size_t end = std::min<std::size_t>(size_ - first, Slots::slotsOf(chunk));
            for (std::size_t i = std::max<unsigned long>(first, count) - first; i < end; ++i) {
                elementClass_->copy(slots + i * elementClass_->size, *prototype_);
            }
        }
    }
    size_ = count;
    Slots::trim(chunks_, count > 0 ? Slots::chunkOf(count - 1) + 1 : 0);
}

void Array::makeChunk(std::size_t chunk) {
    std::byte* const slots = Slots::allocate(chunks_, chunk, elementClass_->size);
    try {
        elementClass_->construct(slots, Slots::slotsOf(chunk), *prototype_);
    } catch (...) {
        Slots::release(chunks_, chunk);
        throw;
    }
}

void Array::freeChunk(std::size_t chunk) noexcept {
    std::byte* const slots = chunks_[chunk].slots;
    if (slots == nullptr) return;
    elementClass_->destroy(slots, Slots::slotsOf(chunk));
    Slots::release(chunks_, chunk);
}

void Array::freeElements() noexcept {
    PlainBlocks::clear(block_);
    for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) freeChunk(chunk);
    formerValues_.reset();
    size_ = 0;
    Slots::trim(chunks_, 0);
}

void Array::copyElements(const Array& source) {
    elementClass_ = source.elementClass_;
    keepsValues_ = source.keepsValues_;
    isPlain_ = source.isPlain_;
    if (source.size_ == 0) return;
    if (isPlain_) {
        PlainBlocks::reserve(block_, source.size_, elementClass_->size, valueOfNew());
        inPieces(source.size_ * elementClass_->size, [&](std::size_t begin, std::size_t end) {
            std::memcpy(block_.values + begin, source.block_.values + begin, end - begin);
        });
        size_ = block_.size = source.size_;
        return;
    }
    Slots::extend(chunks_, source.chunks_.size());
    for (std::size_t chunk = 0; chunk <= Slots::chunkOf(source.size_ - 1); ++chunk) {
        std::byte* const from = source.chunks_[chunk].slots;
        if (from == nullptr) continue;
        countWork(Slots::slotsOf(chunk) * elementClass_->size);
        makeChunk(chunk);
        std::byte* const to = chunks_[chunk].slots;
        const std::size_t count =
            std::min<std::size_t>(source.size_ - Slots::firstOf(chunk), Slots::slotsOf(chunk));
        if (keepsValues_) {
            std::memcpy(to, from, count * elementClass_->size);
            continue;
        }
        for (std::size_t i = 0; i < count * elementClass_->size; i += elementClass_->size) {
            elementClass_->copy(to + i, *elementClass_->element(from + i));
        }
    }
    size_ = source.size_;
}

}  // namespace SCR
