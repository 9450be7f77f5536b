#include "platform/launchservices/LaunchServices.h"

#include "platform/files/Files.h"
#include "platform/files/UserFolders.h"
#include "platform/foundation/ASCII.h"
#include "platform/foundation/Path.h"
#include "platform/launchservices/linux/DesktopEntry.h"
#include "platform/launchservices/linux/KeyFile.h"
#include "platform/process/Log.h"
#include "platform/process/Task.h"

#include <algorithm>
#include <cstdlib>
#include <map>

// Default handlers as defined by the freedesktop standard "Association between MIME types and applications"
// 1.0.1. The MimeType lines of applications are not read, only their copy in mimeinfo.cache: otherwise each
// look-up would read all desktop entries.

namespace platform {
namespace {

// OSStatus values of Apple's LSInfo.h.
constexpr std::int32_t parameterError = -50;
constexpr std::int32_t unknownError = -10810;
constexpr std::int32_t applicationNotFoundError = -10814;

/// A folder that may contain association files, and whether it contains desktop entries too.
struct Folder {
    std::string path;
    bool hasEntries;
};

/// In decreasing order of precedence.
std::vector<Folder> desktopFolders() {
    std::vector<Folder> folders = {{configurationFolder(), false}};
    for (const std::string& folder : foldersInVariable("XDG_CONFIG_DIRS", "/etc/xdg"))
        folders.push_back({folder, false});
    folders.push_back({pathByAppending(dataFolder(), "applications"), true});
    for (const std::string& folder : foldersInVariable("XDG_DATA_DIRS", "/usr/local/share:/usr/share"))
        folders.push_back({pathByAppending(folder, "applications"), true});
    return folders;
}

/// A desktop file ID. It selects the first usable entry with this ID, but only if that entry is in the folder
/// `firstFolder` or a later one.
struct Candidate {
    std::string identifier;
    std::size_t firstFolder;
};

/// The names of the association files in one folder. Only the last one, which applies to all desktops, may
/// add and remove associations.
std::vector<std::string> listNames() {
    const char* desktops = std::getenv("XDG_CURRENT_DESKTOP");
    std::vector<std::string> names;
    for (const std::string_view desktop : split(desktops ? desktops : "", ':')) {
        std::string& name = names.emplace_back(desktop);
        std::transform(name.begin(), name.end(), name.begin(), &lowerCase);
        name += "-mimeapps.list";
    }
    names.emplace_back("mimeapps.list");
    return names;
}

/// The applications for a MIME type, in order of preference.
std::vector<Candidate> candidatesFor(const std::string& type, const std::vector<Folder>& folders) {
    std::vector<Candidate> candidates, associated;
    // The first list that names an application decides whether it is associated or removed.
    std::map<std::string, bool> isAssociated;
    const auto add = [&](std::vector<Candidate>& to, const Data& file, const char* group,
                         std::size_t folder) {
        for (const std::string_view identifier : split(keyFileValue(file, group, type), ';'))
            if (identifier.find('/') == std::string_view::npos &&
                isAssociated.try_emplace(std::string(identifier), true).first->second)
                to.push_back({std::string(identifier), folder});
    };
    for (std::size_t i = 0; i < folders.size(); ++i) {
        Data list;
        for (const std::string& name : listNames()) {
            list = readKeyFile(pathByAppending(folders[i].path, name));
            add(candidates, list, "Default Applications", 0);
        }
        add(associated, list, "Added Associations", i);
        for (const std::string_view identifier : split(keyFileValue(list, "Removed Associations", type), ';'))
            isAssociated.try_emplace(std::string(identifier), false);
        if (folders[i].hasEntries)
            add(associated, readKeyFile(pathByAppending(folders[i].path, "mimeinfo.cache")), "MIME Cache", i);
    }
    candidates.insert(candidates.end(), associated.begin(), associated.end());
    return candidates;
}

/// The entry that `candidate` selects, if it can open `url`. If an entry cannot be used, the next folders are
/// searched: a user may have removed a program that is installed for all users too. A hidden entry ends the
/// search, because users hide an application in this way.
std::optional<DesktopEntry> usableEntry(const Candidate& candidate, const std::vector<Folder>& folders,
                                        const URL& url) {
    std::span<const URL> urls(&url, 1);
    for (std::size_t i = 0; i < folders.size(); ++i) {
        if (!folders[i].hasEntries)
            continue;
        DesktopEntry entry = DesktopEntry::find(folders[i].path, candidate.identifier);
        if (entry.isHidden())
            break;
        if (!entry.command(urls).empty())
            return i >= candidate.firstFolder ? std::optional(std::move(entry)) : std::nullopt;
    }
    return std::nullopt;
}

/// The installed application for URLs of this scheme; its file is empty if there is none.
DesktopEntry handlerForURL(const URL& url) {
    const std::vector<Folder> folders = desktopFolders();
    for (const Candidate& candidate : candidatesFor("x-scheme-handler/" + url.scheme(), folders))
        if (auto entry = usableEntry(candidate, folders, url))
            return *std::move(entry);
    return {};
}

/// The innermost "*.app" folder above `program`.
std::optional<std::string> applicationFolderAbove(const std::string& program) {
    for (std::size_t end = program.rfind('/'); end != std::string::npos && end > 0;
         end = program.rfind('/', end - 1)) {
        const std::string folder = program.substr(0, end);
        if (pathExtension(folder) == "app")
            return folder;
    }
    return std::nullopt;
}

} // namespace

std::optional<URL> applicationForURL(const URL& url) {
    std::span<const URL> urls(&url, 1);
    const std::vector<std::string> command = handlerForURL(url).command(urls);
    if (command.empty())
        return std::nullopt;
    const std::string behindLinks = resolveSymbolicLinks(command.front());
    auto folder = applicationFolderAbove(command.front());
    if (!folder)
        folder = applicationFolderAbove(behindLinks);
    return URL::fileURLWithPath(folder.value_or(behindLinks.substr(0, behindLinks.rfind('/'))) + "/");
}

std::int32_t openURLs(const std::vector<URL>& urls) {
    if (urls.empty())
        return parameterError;
    const DesktopEntry handler = handlerForURL(urls.front());
    const std::string folder = handler.text("Path");
    for (std::span<const URL> rest = urls; !rest.empty();) {
        const std::vector<std::string> command = handler.command(rest);
        if (command.empty())
            return applicationNotFoundError;
        try {
            Task().launch({.launchPath = command.front(),
                           .arguments = {command.begin() + 1, command.end()},
                           .currentDirectoryPath = folder.empty() ? std::nullopt : std::optional(folder),
                           .newSession = true});
        } catch (const LaunchError& error) {
            log(error.what());
            return unknownError;
        }
    }
    return 0;
}

void openInBrowser(const URL& url) {
    openURLs({url});
}

} // namespace platform
