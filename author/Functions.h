#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace SCR {
struct ModuleTable;
}

namespace Author {

/// A function that scripts can call, as the manual describes it.
struct FunctionEntry {
    std::string module;  ///< empty for a built-in one
    std::string name;
    std::string signature;  ///< "Type name(Type name, [Type name])"
    std::string manual;     ///< in Markdown
    std::string example;
    std::string result() const { return signature.substr(0, signature.find(' ')); }
    /// The parameters, each as it is written, without what is between them.
    std::vector<std::string> parameters() const;
};

/// The functions of a table; `module` is how scripts call the module, empty for none.
std::vector<FunctionEntry> entriesOf(const SCR::ModuleTable& table, const std::string& module);

/// The functions that scripts can call: those built in, those of modules and those of a host.
class Functions {
public:
    /// Those of the library and of the modules that come with it.
    static Functions shipped();

    void add(FunctionEntry entry);
    /// The function called `name`, which may be "module::name"; of the modules `used` also without
    /// the module. Null for none.
    const FunctionEntry* find(std::string_view name, const std::vector<std::string>& used) const;
    const std::vector<FunctionEntry>& all() const { return all_; }
    /// The modules and what they are for.
    const std::map<std::string, std::string, std::less<>>& modules() const { return modules_; }

private:
    std::vector<FunctionEntry> all_;
    std::map<std::string, std::string, std::less<>> modules_;
    std::multimap<std::string, std::size_t, std::less<>> byName_;
};

}  // namespace Author
