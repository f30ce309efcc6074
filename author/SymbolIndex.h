#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "author/SourceText.h"

namespace Author {

/// A stretch of one of the files of a program.
struct Extent {
    std::size_t file = 0;  ///< its number in the index; 0 is the script
    std::size_t begin = 0;
    std::size_t end = 0;
    bool operator==(const Extent&) const = default;
};

/// Something that a script names.
struct Symbol {
    enum class Kind { Variable, Parameter, Constant, Function };
    Kind kind = Kind::Variable;
    std::string name;
    std::string type;   ///< such as "Long[]"; of a function that of its result, which may be empty
    std::string value;  ///< of a constant, as it is written
    Extent declared;    ///< the name where it is declared
    Extent whole;       ///< the declaration; of a function with its body
    std::size_t scope = 0;                ///< where it is declared
    std::vector<std::size_t> parameters;  ///< of a function, by their numbers
    std::vector<std::size_t> uses;        ///< in `SymbolIndex::uses()`, the declaration included
};

/// A name in the text.
struct Use {
    enum class Kind { Name, Declaration, Field, Module, ModuleName };
    Kind kind = Kind::Name;
    Extent at;
    std::size_t symbol = 0;  ///< or `SymbolIndex::none`
    bool isWritten = false;  ///< the left side of an assignment
};

/// Where names hold: the whole script, a function or braces.
struct Scope {
    std::size_t parent = 0;  ///< of the outermost: itself
    Extent extent;           ///< in the file where it begins
    std::vector<std::size_t> symbols;
};

/// What names a script with its include files declares, and where they are used. It is read from
/// the tokens, so that a text with errors has an index too; what the parser finds is the same for a
/// text that compiles. Immutable; any thread.
class SymbolIndex {
public:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    /// Gives the file that an include line names, or null.
    using Include = std::function<std::shared_ptr<const SourceText>(std::string_view name)>;

    SymbolIndex(std::shared_ptr<const SourceText> script, const Include& include);

    /// The script and its include files.
    const std::vector<std::shared_ptr<const SourceText>>& files() const { return files_; }
    const SourceText& file(std::size_t number) const { return *files_[number]; }
    const std::vector<Symbol>& symbols() const { return symbols_; }
    /// In the order in which the parser reads them.
    const std::vector<Use>& uses() const { return uses_; }
    const std::vector<Scope>& scopes() const { return scopes_; }
    /// The modules that the script uses.
    const std::vector<std::string>& modules() const { return modules_; }
    /// The include lines of the script itself: their place and the file, or `none`.
    struct Included {
        Extent at;
        std::size_t file;
    };
    const std::vector<Included>& included() const { return included_; }

    /// The numbers of the uses in file `file`, in the order of the text.
    const std::vector<std::size_t>& usesIn(std::size_t file) const { return usesOfFile_[file]; }
    /// The name of file `file` at `offset`, also right after it; null for none.
    const Use* useAt(std::size_t file, std::size_t offset) const;
    /// The symbols that can be named in the script at `offset`, the innermost first; each name
    /// once.
    std::vector<std::size_t> visibleAt(std::size_t offset) const;
    /// The symbol of that name there, or `none`.
    std::size_t find(std::string_view name, std::size_t offset) const;

private:
    class Reader;
    std::size_t scopeAt(std::size_t offset) const;

    std::vector<std::shared_ptr<const SourceText>> files_;
    std::vector<Symbol> symbols_;
    std::vector<Use> uses_;
    std::vector<std::vector<std::size_t>> usesOfFile_;
    std::vector<Scope> scopes_;
    std::vector<std::string> modules_;
    std::vector<Included> included_;
};

}  // namespace Author
