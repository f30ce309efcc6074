#include "scr/builtin/base/StringSum.h"

#include <algorithm>
#include <typeinfo>

#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/tree/Operand.h"

namespace SCR {

std::unique_ptr<StringSum> StringSum::make(RunControl& control, std::unique_ptr<Node> left,
                                           std::unique_ptr<Node> right) {
    std::unique_ptr<StringSum> sum;
    if (Node& operand = *left; typeid(operand) == typeid(StringSum)) {
        sum.reset(static_cast<StringSum*>(left.release()));
    } else {
        sum.reset(new StringSum(control));
        sum->add(std::move(left));
    }
    sum->add(std::move(right));
    return sum;
}

void StringSum::add(std::unique_ptr<Node> operand) {
    parts_.emplace_back(std::move(operand));
    values_.push_back(nullptr);
}

std::size_t StringSum::evaluate() {
    std::size_t size = 0;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        values_[i] = &parts_[i].value();
        size += values_[i]->size();
        control_.checkString(this, size);
    }
    return size;
}

const FND::String& StringSum::result() { return assemble(evaluate()); }

const FND::String& StringSum::assemble(std::size_t size) {
    growBuffer(result_, size);
    if (isLarge(size)) [[unlikely]] {
        result_.clear();
        for (const FND::String* value : values_) appendInPieces(result_, *value);
        return result_;
    }
    result_.assign(*values_.front());
    for (std::size_t i = 1; i < values_.size(); ++i) result_.append(*values_[i]);
    return result_;
}

void StringSum::storeIn(FND::String& target) {
    const std::size_t size = evaluate();
    const auto others = values_.begin() + 1;
    const bool isFirst = values_.front() == &target;
    if (std::find(others, values_.end(), &target) != values_.end() || (!isFirst && isLarge(size))) {
        // The target occurs in the middle, or it must not be lost when the script is stopped.
        store(target, assemble(size));
        return;
    }
    if (isFirst) return appendTo(target, size);
    chargeGrowth(target, size);
    if (size > target.capacity()) {
        FND::String room;
        room.reserve(size);
        target.swap(room);
    }
    target.assign(*values_.front());
    for (auto value = others; value != values_.end(); ++value) target.append(**value);
}

void StringSum::appendTo(FND::String& target, std::size_t size) {
    const auto others = values_.begin() + 1;
    if (size > target.capacity()) {
        chargeGrowth(target, size);
        reserveInPieces(target, std::max(size, 2 * target.capacity()));
    }
    const std::size_t oldSize = target.size();
    if (!isLarge(size - oldSize)) [[likely]] {
        for (auto value = others; value != values_.end(); ++value) target.append(**value);
        return;
    }
    try {
        for (auto value = others; value != values_.end(); ++value) appendInPieces(target, **value);
    } catch (...) {
        target.resize(oldSize);
        throw;
    }
}

}  // namespace SCR
