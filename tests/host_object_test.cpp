// Objects of a host that scripts hold by handles.

#include "Script.h"
#include "scr/HostExtension.h"
#include "scr/ScriptHandle.h"

namespace {

using SCR::HostExtension;
using SCR::Interpreter;
using SCR::Object;

struct Customer {
    FND::String name;
};

struct Account {
    explicit Account(long given) : balance(given) { ++aliveCM; }
    Account(const Account&) = delete;
    ~Account() { --aliveCM; }
    long balance;
    inline static int aliveCM = 0;
};

struct Host {
    Harness::MemoryLog log;
    Customer ann{"Ann"};
    std::shared_ptr<Account> kept = std::make_shared<Account>(7);
    FND::String printed;
    Interpreter interpreter{&log};
    HostExtension& host = *HostExtension::insert(interpreter, "host");

    Host() {
        host.type<Customer>("Customer");
        host.type<Account>("Account");
        host.function("ann", [this] { return Object(&ann); });
        host.function("noCustomer", [] { return Object<Customer>(); });
        host.function("name", [](Object<Customer> customer) { return customer->name; });
        host.function("open", [](long balance) {
            return Object<Account>(std::make_shared<Account>(balance));
        });
        host.function("kept", [this] { return Object(kept); });
        host.function("balance", [](const Object<Account>& account) { return account->balance; });
        host.function("isOpen", [](SCR::ObjectOrNull<Account> account) { return bool(account); });
        host.function("isSame", [](Object<Account> a, Object<Account> b) { return a == b; });
        host.function("bonus", [](Object<Account> account, std::optional<Object<Account>> from) {
            if (from) account->balance += from->get()->balance;
            return account->balance;
        });
        host.function("close", [this](Object<Account> account) {
            host.forget(account.get());
            return account->balance;  // which the call still holds
        });
        host.function("total", [](SCR::ArrayView<Object<Account>> all) {
            long sum = 0;
            for (unsigned long i = 0; i < all.size(); ++i) sum += all[i] ? all[i]->balance : 1000;
            return sum;
        });
        host.function("fillUp", [](SCR::ArrayRef<Object<Account>> all, Object<Account> one) {
            return all.append(one) && all.append(nullptr);
        });
        host.function("index", [this](SCR::HashRef<Object<Customer>> all) {
            const bool isMissing = !all["ann"];
            return all.set("ann", &ann) && isMissing && all["ann"].get() == &ann;
        });
        host.function("print", [this](std::string_view text) { printed.append(text) += ";"; });
    }
};

// What a script prints, or what is wrong with it.
FND::String resultOf(const char* text) {
    Host host;
    if (host.interpreter.compile(text)) host.interpreter.execute();
    return host.log.text.empty() ? host.printed : host.log.text;
}

TEST(HostObjects, AreWhatScriptsHold) {
    const struct {
        const char* text;
        const char* result;
    } cases[] = {
        {"Customer c = ann(); print(name(c));", "Ann;"},
        {"Account a = open(3); Account b = a; print(longToStr(balance(b)));", "3;"},
        {"if (isSame(kept(), kept()) and isSame(open(1), open(1)) == false) print(\"same\");",
         "same;"},
        {"Account all[]; all[2] = open(5); all[0] = kept(); print(longToStr(total(all)));",
         "1012;"},
        {"Account all[]; fillUp(all, open(4)); print(longToStr(total(all)));", "1004;"},
        {"Customer all{}; if (index(all)) print(name(all{\"ann\"}));", "Ann;"},
        {"Account all[]{}; all[1]{\"x\"} = open(2); print(longToStr(balance(all[1]{\"x\"})));",
         "2;"},
        {"function Account better(Account a, Account b) "
         "{ if (balance(a) > balance(b)) { return a; } return b; } "
         "print(longToStr(balance(better(open(1), better(open(9), open(2))))));",
         "9;"},
        {"Account a = kept(); print(longToStr(bonus(a)) + longToStr(bonus(a, open(1))));", "78;"},
        {"Account a = open(6); print(longToStr(close(a))); if (isOpen(a) == false) "
         "print(\"gone\");",
         "6;gone;"},
        // Two types do not mix, and neither is a number.
        {"name(kept());",
         "ERROR: line 1: expected Customer not Account as argument 1 in "
         "`String name(Customer)'\n"},
        {"Customer c; c = kept();", "ERROR: line 1: expected Customer not Account\n"},
        {"Customer all[]; total(all);",
         "ERROR: line 1: expected Account not Customer as argument 1 in `Long total(Array)'\n"},
        {"function Long f(Customer c) { return 1; } f(kept());",
         "ERROR: line 1: expected Customer not Account as argument 1 in `Long f(Customer)'\n"},
        {"function Customer f { return kept(); }",
         "ERROR: line 1: expected Customer not Account\n"},
        {"name(5);",
         "ERROR: line 1: expected Customer not Long as argument 1 in `String name(Customer)'\n"},
        {"Customer Customer;", "ERROR: line 1: parse error\n"},
        // Null and dead handles.
        {"Customer c; name(c);",
         "ERROR: line 1: script stopped: name: argument 1 is the null handle\n"},
        {"name(noCustomer());",
         "ERROR: line 1: script stopped: name: argument 1 is the null handle\n"},
        {"Account a = open(6); close(a); balance(a);",
         "ERROR: line 1: script stopped: balance: argument 1 is an object that is gone\n"},
    };
    for (const auto& row : cases) EXPECT_EQ(resultOf(row.text), row.result) << row.text;
    EXPECT_EQ(Account::aliveCM, 0);
}

TEST(HostObjects, AreSharedAsLongAsAVariableHoldsThem) {
    Host host;
    ASSERT_TRUE(
        host.interpreter.compile("Account first; Account all[]; Long run; "
                                 "function BEGIN { first = open(1); } run = run + 1; "
                                 "open(2); if (run < 4) all[run] = open(run); "
                                 "if (run == 5) { first = kept(); all[2] = kept(); }"))
        << host.log.text;
    EXPECT_EQ(Account::aliveCM, 2);  // with that of the host
    // With many of them, the interpreter does not look after each run.
    for (const int alive : {3, 4, 5, 6, 3, 4}) {
        EXPECT_TRUE(host.interpreter.execute());
        EXPECT_EQ(Account::aliveCM, alive);
    }
    host.kept.reset();
    EXPECT_GT(Account::aliveCM, 0);
    ASSERT_TRUE(host.interpreter.compile("Long nothing;"));
    EXPECT_EQ(Account::aliveCM, 0);
    // Records leave nothing behind.
    ASSERT_TRUE(host.interpreter.compile("Account a = open(2); balance(a);"));
    for (int run = 0; run < 1000; ++run) ASSERT_TRUE(host.interpreter.execute());
    EXPECT_LE(Account::aliveCM, 2);
}

TEST(HostObjects, AreLimitedWithinARun) {
    Host host;
    SCR::Limits limits;
    limits.memory = 4'000'000;
    host.interpreter.limits(limits);
    ASSERT_TRUE(host.interpreter.compile("while (true) open(1);"));
    EXPECT_FALSE(host.interpreter.execute());
    EXPECT_TRUE(host.interpreter.wasStopped());
    EXPECT_EQ(Account::aliveCM, 1);
}

TEST(HostObjects, ArePassedThroughHandlesOfTheScript) {
    Host host;
    ASSERT_TRUE(
        host.interpreter.compile("Account own = kept(); Account all[]; Customer who; "
                                 "function Account other(Account a) "
                                 "{ if (isOpen(a)) return own; return a; }"));
    EXPECT_TRUE(host.interpreter.execute());
    const auto own = host.interpreter.variable<Object<Account>>("own");
    EXPECT_EQ(own.get().value().get(), host.kept.get());
    const auto other = host.interpreter.function<Object<Account>(Object<Account>)>("other");
    EXPECT_EQ(other(std::make_shared<Account>(1)).value().share(), host.kept);
    EXPECT_FALSE(other(nullptr).value());
    const auto all = host.interpreter.variable<std::vector<Object<Account>>>("all");
    EXPECT_TRUE(all.set({host.kept, nullptr}));
    EXPECT_EQ(all.get().value(), (std::vector<Object<Account>>{host.kept, nullptr}));
    const auto wrong = host.interpreter.variable<Object<Account>>("who");
    EXPECT_EQ(wrong.set(host.kept).diagnostic().text,
              "ERROR: `who': its type is not that of the object's class");
    EXPECT_EQ(host.interpreter.variable<long>("own").outcome().diagnostic().text,
              "ERROR: `own' is Account, not Long");
}

TEST(HostObjects, RefuseWrongNames) {
    Host host;
    struct Other {};
    const struct {
        const char* name;
        const char* reason;
    } cases[] = {{"Long", "`Long' is taken"},
                 {"a b", "`a b' is no identifier"},
                 {"Customer", "`Customer' is taken"},
                 {"ann", "`ann' is taken"},
                 {"substr", "`substr' is taken"}};
    for (const auto& row : cases) {
        host.log.text.clear();
        EXPECT_FALSE(host.host.type<Other>(row.name));
        EXPECT_NE(host.log.text.find(row.reason), std::string::npos) << host.log.text;
    }
    EXPECT_EQ(host.host.function("f", [](Object<Other>) {}), nullptr);
    EXPECT_FALSE(host.host.variable<long>("Account").isDeclared());
    EXPECT_TRUE(host.host.type<Other>("Ebuf"));
    EXPECT_NE(host.host.function("f", [](Object<Other>) {}), nullptr);
    EXPECT_TRUE(host.interpreter.compile("Ebuf none; Iterator other;"));
}

}  // namespace
