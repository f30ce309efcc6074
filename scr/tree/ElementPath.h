#pragma once

#include <cstddef>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/value/ChargedText.h"

namespace SCR {

/// The indices and keys of an access to an element, in the order of their evaluation.
class ElementTrail {
public:
    void clear() {
        indices_.clear();
        keyCount_ = 0;
        rewind();
    }
    /// Starts again at the first index and the first key.
    void rewind() { nextIndex_ = nextKey_ = 0; }

    void add(long index) { indices_.push_back(index); }
    void add(const FND::String& key) {
        if (keyCount_ == keys_.size()) keys_.emplace_back();
        keys_[keyCount_++].assign(key);
    }
    long nextIndex() { return indices_[nextIndex_++]; }
    const FND::String& nextKey() { return keys_[nextKey_++].text(); }

private:
    std::vector<long> indices_;
    std::vector<ChargedText> keys_;  // those from keyCount_ on only keep their memory
    std::size_t keyCount_ = 0;
    std::size_t nextIndex_ = 0;
    std::size_t nextKey_ = 0;
};

/// An extra ability of accesses to elements: they can evaluate their indices and keys once, and
/// then find the element several times, whatever happened to it in between. `Found` is the class of
/// an element that is a container; for other elements it is the type of the value.
template <class Found>
class ElementPath {
public:
    ElementPath() = default;
    ElementPath(const ElementPath&) = delete;
    ElementPath& operator=(const ElementPath&) = delete;
    virtual ~ElementPath() = default;

    /// Evaluates the indices and keys and adds them to `trail`.
    virtual void note(ElementTrail& trail) = 0;
    /// The element for the next indices and keys of `trail`. Made when it is missing; null when it
    /// cannot be made. Owned by its container; use it at once.
    virtual Found* follow(ElementTrail& trail) = 0;
};

}  // namespace SCR
