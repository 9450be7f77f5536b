#include "platform/launchservices/linux/DesktopEntry.h"

#include "platform/files/Files.h"
#include "platform/files/UserFolders.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Path.h"
#include "platform/launchservices/linux/KeyFile.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <utility>

namespace platform {
namespace {

constexpr std::size_t none = std::string_view::npos;

bool isExecutable(const std::string& path) {
    return access(path.c_str(), X_OK) == 0 && !isDirectory(path);
}

/// The path of an installed program; empty if there is none. Paths relative to the working directory are not
/// accepted.
std::string installedProgram(const std::string& name) {
    if (name.starts_with('/') && isExecutable(name))
        return name;
    if (!name.empty() && name.find('/') == none)
        for (const std::string& folder : foldersInVariable("PATH", "/usr/local/bin:/usr/bin:/bin"))
            if (std::string path = pathByAppending(folder, name); isExecutable(path))
                return path;
    return "";
}

/// The user's locale for texts, as setlocale(3) selects it. Empty if the environment sets none.
std::string messageLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (const char* const value = std::getenv(variable); value && *value)
            return value;
    return "";
}

/// Splits an Exec value into words and removes the quotes. Empty if a quote or escape is incomplete. The
/// standard allows double quotes around whole words only. Desktops also accept single quotes, quotes around
/// a part of a word, and escapes outside quotes.
std::vector<std::string> wordsOf(std::string_view line) {
    std::vector<std::string> words;
    bool inWord = false;
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (!quote && std::string_view(" \t\r\n").find(line[i]) != none) {
            inWord = false;
            continue;
        }
        if (!std::exchange(inWord, true))
            words.emplace_back();
        const std::string_view next = line.substr(i + 1, 1);
        if (line[i] == '\\' && (!quote || (quote == '"' && std::string_view("\"`$\\").find(next) != none))) {
            if (next.empty())
                return {};
            words.back() += line[++i];
        } else if (line[i] == quote) {
            quote = 0;
        } else if (!quote && (line[i] == '"' || line[i] == '\'')) {
            quote = line[i];
        } else {
            words.back() += line[i];
        }
    }
    return quote ? std::vector<std::string>() : words;
}

/// Replaces the field codes of `word`. Sets `hasURL` if one of them stands for a URL. Null if a code is
/// unknown: the standard forbids the use of such a line.
std::optional<std::string> expanded(std::string_view word, const std::map<char, std::string>& codes,
                                    bool& hasURL) {
    std::string result;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] != '%') {
            result += word[i];
            continue;
        }
        const auto code = ++i < word.size() ? codes.find(word[i]) : codes.end();
        if (code == codes.end())
            return std::nullopt;
        hasURL = hasURL || std::string_view("uUfF").find(code->first) != none;
        result += code->second;
    }
    return result;
}

} // namespace

DesktopEntry DesktopEntry::find(const std::string& folder, std::string_view identifier, int levels) {
    DesktopEntry entry = {pathByAppending(folder, identifier), {}};
    entry.file = readKeyFile(entry.path);
    for (std::size_t dash = identifier.find('-'); levels > 0 && dash != none && entry.file.empty();
         dash = identifier.find('-', dash + 1)) {
        const std::string below = pathByAppending(folder, identifier.substr(0, dash));
        // "." and ".." would select entries that have another identifier.
        if (dash > 0 && identifier.front() != '.' && isDirectory(below))
            entry = find(below, identifier.substr(dash + 1), levels - 1);
    }
    return entry;
}

std::string DesktopEntry::text(std::string_view key) const {
    constexpr std::string_view letters = "sntr\\", meanings = " \n\t\r\\";
    const std::string_view value = keyFileValue(file, "Desktop Entry", key);
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const std::size_t escape =
            value[i] == '\\' && i + 1 < value.size() ? letters.find(value[i + 1]) : none;
        text += escape == none ? value[i] : meanings[escape];
        i += escape == none ? 0 : 1;
    }
    return text;
}

std::string DesktopEntry::localizedText(const std::string& key) const {
    const std::string locale = messageLocale(); // lang_COUNTRY.ENCODING@MODIFIER
    const std::string modifier = locale.substr(std::min(locale.find('@'), locale.size()));
    const std::string place = locale.substr(0, locale.find_first_of(".@"));
    const std::string language = place.substr(0, place.find('_'));
    for (const std::string& one : {place + modifier, place, language + modifier, language})
        if (std::string translation = text(format("%@[%@]", key, one)); !translation.empty())
            return translation;
    return text(key);
}

bool DesktopEntry::isHidden() const {
    const std::string hidden = text("Hidden");
    return hidden == "true" || hidden == "1";
}

std::vector<std::string> DesktopEntry::command(std::span<const URL>& urls) const {
    const std::string needed = text("TryExec"), icon = localizedText("Icon");
    if (text("Type") != "Application" || isHidden() || (!needed.empty() && installedProgram(needed).empty()))
        return {};
    const std::string& url = urls.front().absoluteString();
    std::map<char, std::string> codes = {
        {'%', "%"}, {'c', localizedText("Name")}, {'k', path}, {'u', url}, {'U', url}, {'f', url},
        {'F', url}};
    for (const char noneOrDeprecated : {'i', 'd', 'D', 'n', 'N', 'v', 'm'})
        codes[noneOrDeprecated];
    std::vector<std::string> command;
    bool hasURL = false, hasAll = false;
    const auto addAll = [&] {
        for (const URL& each : urls)
            command.push_back(each.absoluteString());
        hasAll = true;
    };
    for (const std::string& word : wordsOf(text("Exec"))) {
        const auto argument = expanded(word, codes, hasURL);
        if (!argument)
            return {};
        if (word == "%U" || word == "%F")
            addAll();
        else if (word == "%i" && !icon.empty())
            command.insert(command.end(), {"--icon", icon});
        else if (!argument->empty() || word.empty())
            command.push_back(*argument);
    }
    if (command.empty() || (command.front() = installedProgram(command.front())).empty())
        return {};
    if (!hasURL)
        addAll();
    urls = urls.subspan(hasAll ? urls.size() : 1);
    return command;
}

} // namespace platform
