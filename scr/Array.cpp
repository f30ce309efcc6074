#include "scr/Array.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>

#include "scr/value/ElementClass.h"

namespace SCR {

Array::Array(Variable* prototype)
    : Variable(TypeCode::Array),
      ownsPrototype_(true),
      keepsValues_(ElementClass::ofValues(*prototype) != nullptr),
      prototype_(prototype),
      elementClass_(keepsValues_ ? ElementClass::ofValues(*prototype)
                                 : &ElementClass::of(*prototype)) {}

Array::Array(const Array& source, Variable* sharedPrototype)
    : Variable(source.dataType()),
      ownsPrototype_(false),
      keepsValues_(source.keepsValues_),
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
    return elementClass_->element(store_.find(index, elementClass_->size));
}

bool Array::make(unsigned long index, unsigned long limit) {
    if (index >= size_ && index >= std::min(limit, maxSizeCM)) return false;
    const std::size_t chunk = SlotStore::chunkOf(index);
    try {
        if (chunk >= store_.numChunks() || store_.chunk(chunk) == nullptr) makeChunk(chunk);
    } catch (const std::exception&) {
        return false;
    }
    size_ = std::max(size_, index + 1);
    return true;
}

// Variables of plain values need no destruction, so it is safe when memory runs out at any step.
bool Array::makeVariables() {
    const ElementClass& variables = ElementClass::of(*prototype_);
    SlotStore store;
    std::unique_ptr<SlotStore> former;
    try {
        if (store_.numChunks() > 0) former = std::make_unique<SlotStore>();
        store.extend(store_.numChunks());
        for (std::size_t chunk = 0; chunk < store_.numChunks(); ++chunk) {
            const std::byte* from = store_.chunk(chunk);
            if (from == nullptr) continue;
            std::byte* to = store.allocate(chunk, variables.size);
            const std::size_t count = SlotStore::slotsOf(chunk);
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
    store_.swap(store);
    if (former) former->swap(store);
    formerValues_ = std::move(former);
    elementClass_ = &variables;
    keepsValues_ = false;
    return true;
}

std::size_t Array::heapBytes() const {
    std::size_t bytes = store_.heapBytes(elementClass_->size);
    if (formerValues_) bytes += formerValues_->heapBytes(ElementClass::ofValues(*prototype_)->size);
    if (elementClass_->heapBytes == nullptr) return bytes;
    for (std::size_t chunk = 0; chunk < store_.numChunks(); ++chunk) {
        const std::byte* const slots = store_.chunk(chunk);
        if (slots == nullptr) continue;
        countWork(SlotStore::slotsOf(chunk) * elementClass_->size);
        bytes += elementClass_->heapBytes(slots, SlotStore::slotsOf(chunk));
    }
    return bytes;
}

void Array::truncate(unsigned long count) {
    if (count >= size_) return;
    if (count == 0) formerValues_.reset();
    constexpr unsigned long kept = 64;
    const unsigned long firstToFree = std::max(kept, 2 * count);
    std::size_t chunk = SlotStore::chunkOf(size_ - 1) + 1;
    while (chunk-- > SlotStore::chunkOf(count)) {
        const std::size_t first = SlotStore::firstOf(chunk);
        if (first >= firstToFree) {
            freeChunk(chunk);
        } else if (std::byte* const slots = store_.chunk(chunk)) {
            const std::size_t end = std::min<std::size_t>(size_ - first, SlotStore::slotsOf(chunk));
            for (std::size_t i = std::max(first, count) - first; i < end; ++i) {
                elementClass_->copy(slots + i * elementClass_->size, *prototype_);
            }
        }
    }
    size_ = count;
    store_.trim(count > 0 ? SlotStore::chunkOf(count - 1) + 1 : 0);
}

void Array::makeChunk(std::size_t chunk) {
    std::byte* const slots = store_.allocate(chunk, elementClass_->size);
    try {
        elementClass_->construct(slots, SlotStore::slotsOf(chunk), *prototype_);
    } catch (...) {
        store_.release(chunk);
        throw;
    }
}

void Array::freeChunk(std::size_t chunk) noexcept {
    std::byte* const slots = store_.chunk(chunk);
    if (slots == nullptr) return;
    elementClass_->destroy(slots, SlotStore::slotsOf(chunk));
    store_.release(chunk);
}

void Array::freeElements() noexcept {
    for (std::size_t chunk = 0; chunk < store_.numChunks(); ++chunk) freeChunk(chunk);
    formerValues_.reset();
    size_ = 0;
    store_.trim(0);
}

void Array::copyElements(const Array& source) {
    elementClass_ = source.elementClass_;
    keepsValues_ = source.keepsValues_;
    if (source.size_ == 0) return;
    store_.extend(source.store_.numChunks());
    for (std::size_t chunk = 0; chunk <= SlotStore::chunkOf(source.size_ - 1); ++chunk) {
        std::byte* const from = source.store_.chunk(chunk);
        if (from == nullptr) continue;
        countWork(SlotStore::slotsOf(chunk) * elementClass_->size);
        makeChunk(chunk);
        std::byte* const to = store_.chunk(chunk);
        const std::size_t count = std::min<std::size_t>(source.size_ - SlotStore::firstOf(chunk),
                                                        SlotStore::slotsOf(chunk));
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
