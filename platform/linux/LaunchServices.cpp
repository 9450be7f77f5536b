#include "platform/LaunchServices.h"

#include "platform/Files.h"
#include "platform/Log.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>

// A desktop's default handlers, as the XDG specifications "Association between MIME types and applications"
// and "Desktop Entry" describe them. GIO finds the handler. It does not start it: its launcher waits for a
// session bus, and cannot tell whether the program could be executed.

namespace platform {
namespace {

// OSStatus values of the published LSInfo.h.
constexpr std::int32_t parameterError = -50;
constexpr std::int32_t unknownError = -10810;
constexpr std::int32_t applicationNotFoundError = -10814;

using Handler = std::unique_ptr<GAppInfo, decltype(&g_object_unref)>;
using Text = std::unique_ptr<char, decltype(&g_free)>;
using TextList = std::unique_ptr<char*, decltype(&g_strfreev)>;

Handler handlerForURL(const URL& url) {
    return Handler(g_app_info_get_default_for_uri_scheme(url.scheme().c_str()), &g_object_unref);
}

/// The words of the handler's Exec line, field codes still in it.
std::vector<std::string> execWords(GAppInfo* handler) {
    const char* line = g_app_info_get_commandline(handler);
    char** words = nullptr;
    if (!line || !g_shell_parse_argv(line, nullptr, &words, nullptr))
        return {};
    const TextList owner(words, &g_strfreev);
    std::vector<std::string> result;
    for (char** word = words; *word; ++word)
        result.emplace_back(*word);
    return result;
}

/// `word` with its field codes replaced. One URL is all that fits into a word; codes that stand for anything
/// else than the URL, the application's name and a percent sign are left out.
std::string expandedWord(const std::string& word, GAppInfo* handler, const URL& url) {
    std::string result;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] != '%' || i + 1 == word.size()) {
            result += word[i];
            continue;
        }
        const char code = word[++i];
        if (std::string_view("uUfF").find(code) != std::string_view::npos)
            result += url.absoluteString();
        else if (code == 'c')
            result += g_app_info_get_name(handler);
        else if (code == '%')
            result += '%';
    }
    return result;
}

/// The command that opens `urls`: the list where the line asks for one, at the end when it asks for none.
std::vector<std::string> commandForURLs(GAppInfo* handler, const std::vector<URL>& urls) {
    std::vector<std::string> command;
    bool hasURL = false;
    const auto addAll = [&] {
        for (const URL& url : urls)
            command.push_back(url.absoluteString());
        hasURL = true;
    };
    for (const std::string& word : execWords(handler)) {
        if (word == "%U" || word == "%F") {
            addAll();
        } else if (std::string expanded = expandedWord(word, handler, urls.front());
                   !expanded.empty() || word.empty()) {
            hasURL = hasURL || expanded.find(urls.front().absoluteString()) != std::string::npos;
            command.push_back(std::move(expanded));
        }
    }
    if (!hasURL && !command.empty())
        addAll();
    return command;
}

/// Runs in the child, where only async-signal-safe calls are allowed.
void leaveSession(void*) {
    setsid();
    signal(SIGPIPE, SIG_DFL);
    signal(SIGXFSZ, SIG_DFL);
}

/// GLib closes all descriptors in the child, opens its standard streams on the null device and leaves it to
/// the system to reap.
bool start(const std::vector<std::string>& command, const char* folder) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    constexpr int flags = G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL;
    GError* error = nullptr;
    const bool started = g_spawn_async(folder, words.data(), nullptr, static_cast<GSpawnFlags>(flags),
                                       &leaveSession, nullptr, nullptr, &error);
    if (!started)
        log(error->message);
    g_clear_error(&error);
    return started;
}

/// The nearest "*.app" folder above `program`.
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
    const Handler handler = handlerForURL(url);
    const std::vector<std::string> words = handler ? execWords(handler.get()) : std::vector<std::string>();
    const Text found(words.empty() ? nullptr : g_find_program_in_path(words.front().c_str()), &g_free);
    if (!found)
        return std::nullopt;
    const std::string program = found.get();
    const std::string behindLinks = resolveSymbolicLinks(program);
    auto folder = applicationFolderAbove(program);
    if (!folder)
        folder = applicationFolderAbove(behindLinks);
    return URL::fileURLWithPath(folder.value_or(behindLinks.substr(0, behindLinks.rfind('/'))) + "/");
}

std::int32_t openURLs(const std::vector<URL>& urls) {
    if (urls.empty())
        return parameterError;
    const Handler handler = handlerForURL(urls.front());
    const auto command = handler ? commandForURLs(handler.get(), urls) : std::vector<std::string>();
    if (command.empty())
        return applicationNotFoundError;
    const Text folder(G_IS_DESKTOP_APP_INFO(handler.get())
                          ? g_desktop_app_info_get_string(G_DESKTOP_APP_INFO(handler.get()), "Path")
                          : nullptr,
                      &g_free);
    return start(command, folder && *folder ? folder.get() : nullptr) ? 0 : unknownError;
}

void openInBrowser(const URL& url) {
    openURLs({url});
}

} // namespace platform
