#pragma once

#include <cstddef>
#include <memory>

#include "scr/Node.h"
#include "scr/Observation.h"
#include "scr/code/Builder.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

// The nodes of an observed script that tell an `Observation` what happens. Each holds the node that
// does the work, if there is one.

/// What such a node does when it is reached.
class ObservedMark {
public:
    /// `counts`: no statement before it has counted for it.
    ObservedMark(Observation& observation, std::size_t site, bool counts);

    void pass() const;
    void lower(Code::Builder& code) const;
    /// Only this is told where the script is again, after a call.
    void lowerPosition(Code::Builder& code) const;

    Observation& observation() const { return *observation_; }
    std::size_t site() const { return site_; }
    bool hasEvents() const { return observation_->tellsSteps(); }

private:
    Observation* observation_;
    std::size_t site_;
    Observation::Count* count_;  // null: not counted here
    long* position_;             // null: not to be set
};

/// A statement.
class ObservedStatement final : public Node, public Code::Lowerable {
public:
    ObservedStatement(std::unique_ptr<Node> statement, ObservedMark mark)
        : statement_(std::move(statement)), mark_(mark) {}

    std::int32_t execute() override {
        mark_.pass();
        return statement_->execute();
    }
    bool returnsResult() const override { return statement_->returnsResult(); }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override;
    void lowerStatement(Code::Builder& code) override;

private:
    const std::unique_ptr<Node> statement_;
    const ObservedMark mark_;
};

/// A place that is passed: the entry of a function, a label of a switch, the end of a case.
class ObservedPlace final : public Node, public Code::Lowerable {
public:
    explicit ObservedPlace(ObservedMark mark) : mark_(mark) {}

    std::int32_t execute() override;
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override;
    void lowerStatement(Code::Builder& code) override;

private:
    const ObservedMark mark_;
};

/// Counts only.
class CountedPlace final : public Node, public Code::Lowerable {
public:
    explicit CountedPlace(Observation::Count& count) : count_(&count) {}

    std::int32_t execute() override {
        ++count_->tree;
        return goOn;
    }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override;
    void lowerStatement(Code::Builder& code) override;

private:
    Observation::Count* const count_;
};

/// A condition.
class ObservedCondition final : public BoolNode, public Code::Lowerable {
public:
    /// `isRepeated`: it is that of a loop, whose body moves the position.
    ObservedCondition(std::unique_ptr<BoolNode> condition, Observation& observation,
                      std::size_t site, bool isRepeated);

    bool result() override;
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override;
    void lowerJump(Code::Builder& code, Code::Label label, bool when) override;

private:
    const std::unique_ptr<BoolNode> condition_;
    Observation* const observation_;
    const std::size_t site_;
    Observation::Count* held_ = nullptr;  // null: not counted
    Observation::Count* otherwise_ = nullptr;
    long position_ = 0;  // to be set
};

/// The text of a value as a script would write it, in one line; of a long one the beginning.
FND::String observedText(long value);
FND::String observedText(bool value);
FND::String observedText(const FND::Decimal& value);
FND::String observedText(const FND::String& value);
FND::String observedText(const FND::DateTime& value);
FND::String observedText(const FND::Identifier& value);

/// `value`, a node of the type, so that its value is told; null for a type without such nodes.
/// `value` is taken only then.
std::unique_ptr<Node> observedValue(std::unique_ptr<Node>& value, int typeWord,
                                    Observation& observation, std::size_t site);

/// A value, for events.
template <class Type>
class ObservedValue final : public Type::Node {
public:
    ObservedValue(std::unique_ptr<Node> value, Observation& observation, std::size_t site)
        : value_(static_cast<typename Type::Node*>(value.release())),
          observation_(&observation),
          site_(site) {}

    typename Type::Argument result() override {
        typename Type::Argument value = value_->result();
        if (observation_->listens()) tell(value);
        return value;
    }
    Node* promote(int typeWord) const override {
        std::unique_ptr<Node> promoted(value_->promote(typeWord));
        if (promoted == nullptr) return nullptr;
        return observedValue(promoted, typeWord, *observation_, site_).release();
    }

private:
    void tell(typename Type::Argument value) {
        observation_->value(site_, observedText(value));
        const ObservedSite& site = observation_->siteAt(site_);
        const bool isSelector = site.kind == ObservedSite::Kind::Selector;
        observation_->choose(isSelector ? site.owner : ObservedSite::none);
    }

    const std::unique_ptr<typename Type::Node> value_;
    Observation* const observation_;
    const std::size_t site_;
};

/// `call`, a call of the function of the site `function`, so that the position is kept and the end
/// of the call is told. `statement` is the site of the statement that it is in, once that is known.
std::unique_ptr<Node> observedCall(std::unique_ptr<Node> call, int typeWord,
                                   Observation& observation, std::size_t function,
                                   std::shared_ptr<const std::size_t> statement);

}  // namespace SCR
