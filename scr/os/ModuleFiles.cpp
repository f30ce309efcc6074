#include "scr/os/ModuleFiles.h"

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "scr/Version.h"

namespace SCR::ModuleFiles {

namespace {

constexpr std::string_view prefixS = "lib";
constexpr std::string_view suffixS = ".so";

FND::String fileOf(const FND::String& name) {
    return FND::String(prefixS) + name + FND::String(suffixS);
}

FND::String loaderError() {
    const char* const text = dlerror();
    return text != nullptr ? text : "unknown error";
}

// Other libraries cannot see the names of this one before it turns out to be an extension.
Library open(const FND::String& path, const FND::String& name) {
    Library library;
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        library.reason = loaderError();
        return library;
    }
    library.generator =
        reinterpret_cast<Generator>(dlsym(handle, (name + "_KestrelExtension").c_str()));
    if (library.generator == nullptr) {
        library.reason = loaderError();
        return library;
    }
    dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD);
    library.table = reinterpret_cast<Table>(dlsym(handle, (name + "_KestrelModule").c_str()));
    library.version = static_cast<const int*>(dlsym(handle, (name + "_KestrelVersion").c_str()));
    return library;
}

// The folder that this library, or the program that holds it, was loaded from.
FND::String ownFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&ownFolder), &info) == 0) return {};
    const std::unique_ptr<char, void (*)(void*)> path(realpath(info.dli_fname, nullptr), std::free);
    if (!path) return {};
    const FND::String text(path.get());
    return text.substr(0, text.rfind('/'));
}

// Found when the library is loaded: later the working directory may be another one.
const FND::String shippedFolderS = ownFolder() + "/kestrel";

std::vector<FND::String> searched(const std::vector<FND::String>& folders) {
    std::vector<FND::String> all(folders);
    const char* const environment = std::getenv("KESTREL_MODULES");
    std::string_view rest = environment != nullptr ? environment : "";
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        if (end > 0) all.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return all;
}

}  // namespace

const FND::String& shippedFolder() { return shippedFolderS; }

Library load(const FND::String& name, bool onlyShipped, const std::vector<FND::String>& folders) {
    std::vector<FND::String> places;
    if (!onlyShipped) places = searched(folders);
    places.push_back(shippedFolderS);
    Library first;
    if (!onlyShipped) {
        first = open(fileOf(name), name);
        if (first.generator != nullptr) return first;
        first.isFound = first.reason.find("cannot open shared object") == FND::String::npos;
    }
    FND::String list;
    for (const FND::String& place : places) {
        const FND::String path = place + "/" + fileOf(name);
        list += (list.empty() ? "" : ", ") + place;
        const bool isFile = access(path.c_str(), F_OK) == 0;
        if (!isFile) continue;
        Library library = open(path, name);
        if (library.generator != nullptr) return library;
        if (first.reason.empty()) first.reason = library.reason;
        first.isFound = true;
    }
    if (first.reason.empty()) first.reason = "no module of this name";
    first.reason += " (not in " + list + " either)";
    if (onlyShipped) first.reason = "no module of this name in " + list;
    first.places = std::move(places);
    return first;
}

std::vector<FND::String> shippedNames() {
    std::vector<FND::String> names;
    if (DIR* const folder = opendir(shippedFolderS.c_str())) {
        while (const dirent* const entry = readdir(folder)) {
            const std::string_view file = entry->d_name;
            if (!file.starts_with(prefixS) || !file.ends_with(suffixS)) continue;
            names.emplace_back(
                file.substr(prefixS.size(), file.size() - prefixS.size() - suffixS.size()));
        }
        closedir(folder);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<const ModuleTable*> shipped() {
    std::vector<const ModuleTable*> tables;
    for (const FND::String& name : shippedNames()) {
        const Library library = load(name, true, {});
        if (library.table != nullptr) tables.push_back(library.table());
    }
    return tables;
}

}  // namespace SCR::ModuleFiles
