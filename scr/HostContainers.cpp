#include "scr/HostContainers.h"

#include <algorithm>
#include <exception>
#include <typeinfo>

#include "scr/Interpreter.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/value/Elements.h"
#include "scr/value/Slots.h"

namespace SCR {

namespace {

template <class T>
using VariableOf = typename Host::ElementOf<T>::Variable;

// The value of an element; a container is its own.
template <class T>
T& valueOf(VariableOf<T>& element) {
    if constexpr (std::is_same_v<VariableOf<T>, T>) {
        return element;
    } else {
        return element.value();
    }
}

template <class T, class Container>
bool holds(const Container& container) {
    const Variable& prototype = *container.defaultValue();
    return typeid(prototype) == typeid(VariableOf<T>);
}

// Stores a value in an element; false when there is none. A container cannot be stored.
template <class T>
bool storeIn([[maybe_unused]] T* element, [[maybe_unused]] const T& value) {
    if constexpr (std::is_base_of_v<Variable, T>) {
        return false;
    } else {
        if (element != nullptr) store(*element, value);
        return element != nullptr;
    }
}

template <class T, class Container>
const T& newValue(const Container& container) {
    return valueOf<T>(static_cast<VariableOf<T>&>(*container.defaultValue()));
}

// What does not exist at all is as it would be in a container without a default.
template <class T>
const T& nullValue() {
    if constexpr (std::is_same_v<T, AdtVariable>) {
        static const T none;
        return none;
    } else if constexpr (std::is_base_of_v<Variable, T>) {
        static T none(new LongVariable());
        return none;
    } else {
        static const T none = Host::ElementOf<T>::null();
        return none;
    }
}

unsigned long elementLimit(const Interpreter* interpreter) {
    return interpreter != nullptr ? static_cast<unsigned long>(interpreter->limits().elements)
                                  : Array::maxSizeCM;
}

// Calls `change`, which throws where a limit does not allow it: the script stops later then.
template <class Change>
auto guarded(Interpreter* interpreter, const Change& change) noexcept -> decltype(change()) {
    try {
        if (interpreter == nullptr || !interpreter->runControl().isStopPending()) return change();
    } catch (const ScriptStopped&) {
        if (interpreter != nullptr) interpreter->runControl().stopLater();
    } catch (const std::exception&) {
        if (interpreter != nullptr) interpreter->fail("out of memory");
    }
    return {};
}

// A text so long that giving its memory back takes a while.
bool isLong(const FND::String& text) { return text.capacity() > std::size_t{1} << 20; }

// Gives back the long texts of an array from element `from` on.
void releaseTexts(Array& array, unsigned long from) {
    while (from < array.size()) {
        const auto run = ArrayElements::change<StringVariable, FND::String>(array, from);
        for (unsigned long i = 0; run.first != nullptr && i < run.count; ++i) {
            if (isLong(run[i])) SCR::releaseLarge(run[i]);
        }
        from += run.count;
    }
}

// Gives back the long texts of a hash.
void releaseTexts(Hash& hash) {
    std::size_t position = 0;
    Variable* element = nullptr;
    while (HashElements::next(hash, position, element) != nullptr) {
        FND::String& text = static_cast<StringVariable&>(*element).value();
        if (isLong(text)) SCR::releaseLarge(text);
        countWork(sizeof(StringVariable) / 4);
    }
}

// Tells, once in a run, that there is no room.
template <class Result>
Result noRoom(Interpreter* interpreter, const char* container) {
    if (interpreter != nullptr && interpreter->runControl().isFirstShortage()) {
        interpreter->logError(FND::String(container) + ": no room for more elements");
    }
    return {};
}

}  // namespace

template <class T>
ArrayView<T>::ArrayView(const Array& array)
    : array_(holds<T>(array) ? const_cast<Array*>(&array) : nullptr) {
    if (array_ != nullptr && !array_->keepPlaces()) array_ = nullptr;
}

template <class T>
Host::Run<const T> ArrayView<T>::run(unsigned long index) const {
    if (array_ == nullptr) return {&nullValue<T>(), 0, 0};
    if (index >= array_->size()) return {&newValue<T>(*array_), 0, 0};
    return ArrayElements::run<VariableOf<T>, T>(*array_, index, &newValue<T>(*array_));
}

template <class T>
ArrayRef<T>::ArrayRef(Array& array, Interpreter* interpreter)
    : ArrayView<T>(array), interpreter_(interpreter) {}

template <class T>
bool ArrayRef<T>::set(unsigned long index, const T& value) const {
    return guarded(interpreter_, [&] { return storeIn(at(index), value); });
}

template <class T>
T* ArrayRef<T>::at(unsigned long index) const {
    return guarded(interpreter_, [&]() -> T* {
        if (this->array_ == nullptr) return nullptr;
        if (!this->array_->make(index, elementLimit(interpreter_))) {
            return noRoom<T*>(interpreter_, "array");
        }
        return &ArrayElements::change<VariableOf<T>, T>(*this->array_, index)[0];
    });
}

template <class T>
Host::Run<T> ArrayRef<T>::change(unsigned long index) const {
    return guarded(interpreter_, [&]() -> Host::Run<T> {
        if (index >= this->size() || !this->array_->make(index)) return {};
        return ArrayElements::change<VariableOf<T>, T>(*this->array_, index);
    });
}

template <class T>
bool ArrayRef<T>::resize(unsigned long size) const {
    return guarded(interpreter_, [&] {
        if (this->array_ == nullptr) return false;
        if (size > this->size() && !this->array_->make(size - 1, elementLimit(interpreter_))) {
            return noRoom<bool>(interpreter_, "array");
        }
        // Freeing a million texts takes long, too.
        constexpr unsigned long piece = 4096;
        while (this->size() > size) {
            const bool isPlain = ArrayElements::isPlain(*this->array_);
            const unsigned long count =
                isPlain ? this->size() - size : std::min(piece, this->size() - size);
            if constexpr (std::is_same_v<T, FND::String>) {
                releaseTexts(*this->array_, this->size() - count);
            }
            this->array_->truncate(this->size() - count);
            if (!isPlain) countWork(count * sizeof(VariableOf<T>));
        }
        return true;
    });
}

template <class T>
HashView<T>::HashView(const Hash& hash)
    : hash_(holds<T>(hash) ? const_cast<Hash*>(&hash) : nullptr) {}

template <class T>
const T* HashView<T>::find(const FND::String& key) const {
    if (hash_ == nullptr) return nullptr;
    auto* const found = HashElements::look<VariableOf<T>>(*hash_, key, keyHash(key));
    return found != nullptr ? &valueOf<T>(*found) : nullptr;
}

template <class T>
std::vector<const FND::String*> HashView<T>::keys() const noexcept {
    try {
        if (hash_ != nullptr) return hash_->keys();
    } catch (const ScriptStopped&) {
        if (RunControl* const control = RunControl::current()) control->stopLater();
    } catch (const std::exception&) {
    }
    return {};
}

template <class T>
const FND::String* HashView<T>::next(std::size_t& position, const T*& value) const {
    if (hash_ == nullptr) return nullptr;
    Variable* element = nullptr;
    const FND::String* const key = HashElements::next(*hash_, position, element);
    if (key != nullptr) value = &valueOf<T>(static_cast<VariableOf<T>&>(*element));
    return key;
}

template <class T>
HashRef<T>::HashRef(Hash& hash, Interpreter* interpreter)
    : HashView<T>(hash), interpreter_(interpreter) {}

template <class T>
bool HashRef<T>::set(const FND::String& key, const T& value) const {
    return guarded(interpreter_, [&] { return storeIn(at(key), value); });
}

template <class T>
T* HashRef<T>::at(const FND::String& key) const {
    return guarded(interpreter_, [&]() -> T* {
        if (this->hash_ == nullptr) return nullptr;
        Variable* const element = this->hash_->find(key, elementLimit(interpreter_));
        if (element == nullptr) return noRoom<T*>(interpreter_, "hash");
        return &valueOf<T>(static_cast<VariableOf<T>&>(*element));
    });
}

template <class T>
bool HashRef<T>::remove(const FND::String& key) const {
    return guarded(interpreter_,
                   [&] { return this->hash_ != nullptr && this->hash_->remove(key); });
}

template <class T>
void HashRef<T>::clear() const {
    guarded(interpreter_, [&] {
        if (this->hash_ == nullptr) return false;
        if constexpr (std::is_same_v<T, FND::String>) releaseTexts(*this->hash_);
        this->hash_->clearInPieces();
        return true;
    });
}

#define KESTREL_CONTAINERS_OF(T) \
    template class ArrayView<T>; \
    template class ArrayRef<T>;  \
    template class HashView<T>;  \
    template class HashRef<T>;
KESTREL_CONTAINERS_OF(long)
KESTREL_CONTAINERS_OF(bool)
KESTREL_CONTAINERS_OF(FND::String)
KESTREL_CONTAINERS_OF(FND::Decimal)
KESTREL_CONTAINERS_OF(FND::DateTime)
KESTREL_CONTAINERS_OF(FND::Identifier)
KESTREL_CONTAINERS_OF(Array)
KESTREL_CONTAINERS_OF(Hash)
KESTREL_CONTAINERS_OF(AdtVariable)
#undef KESTREL_CONTAINERS_OF

}  // namespace SCR
