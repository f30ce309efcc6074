#include "fsm/State.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "fsm/table/Table.h"

namespace FSM {

namespace {

void printByte(std::ostream& out, int byte) {
    if (byte > ' ' && byte < 127) {
        out << static_cast<char>(byte);
    } else {
        out << '\\' << byte / 100 << byte / 10 % 10 << byte % 10;
    }
}

}  // namespace

const std::vector<std::int32_t> State::noPathsCM;

State::~State() = default;

void State::pathNumbers(std::vector<bool>& bits) const {
    std::fill(bits.begin(), bits.end(), false);
    for (std::int32_t path : pathNumbers()) {
        if (path < 0) continue;
        const auto bit = static_cast<std::size_t>(path);
        if (bit >= bits.size()) bits.resize(bit + 1);
        bits[bit] = true;
    }
}

FND::String State::pathString() const {
    FND::String text;
    for (std::int32_t path : pathNumbers()) {
        if (!text.empty()) text += ' ';
        text += std::to_string(path);
    }
    return text;
}

const std::vector<State*>& State::epsilonSuccStates() const {
    static const std::vector<State*> noneS;
    return noneS;
}

void State::epsilonSuccState(State*) {}

State* State::addEpsilonSuccState() { return nullptr; }

void State::epsilonClosure(StateSet&) const {}

void State::setNextWordFSM(Engine*) {}

Engine* State::getNextWordFSM() const { return nullptr; }

void State::print(const std::map<const State*, int>& numbers, std::ostream& out, int indent) const {
    const std::string margin(static_cast<std::size_t>(indent), ' ');
    out << margin << "state ";
    printNumber(numbers, out, this);
    if (!pathNumbers().empty()) out << " paths " << pathString();
    out << '\n';
    for (int first = 0; first < 256;) {
        const State* target = succState(static_cast<unsigned char>(first));
        int last = first;
        while (last < 255 && succState(static_cast<unsigned char>(last + 1)) == target) ++last;
        if (target != nullptr) {
            out << margin << "  ";
            printByte(out, first);
            if (last != first) {
                out << '-';
                printByte(out, last);
            }
            out << " -> ";
            printNumber(numbers, out, target);
            out << '\n';
        }
        first = last + 1;
    }
}

void State::printNumber(const std::map<const State*, int>& numbers, std::ostream& out,
                        const State* state) {
    auto found = numbers.find(state);
    if (found == numbers.end()) {
        out << '?';
    } else {
        out << found->second;
    }
}

State* DetState::succState(unsigned char c) const {
    return table_ == nullptr ? nullptr : table_->successor(*this, c);
}

}  // namespace FSM
