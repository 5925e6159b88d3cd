/* Program support: options against GOption of GLib, a catalogue of translations against gettext.
 * Loading is compared with gettext-po, the library that reads catalogues in text form for the tools
 * of GNU gettext; looking up with gettext() over the same catalogue compiled by msgfmt. */

#include <array>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gettext-po.h>
#include <glib.h>
#include <libintl.h>

#include <vellib/velgetopt.h>
#include <vellib/vellocalization.h>
#include <vellib/vellog.h>

#include "bench.h"

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

/* ---- Options ---- */

const std::array<const char *, 12> kArguments = {
    "fetch",
    "--verbose",
    "-p",
    "8080",
    "--output=page.html",
    "--limit",
    "1000",
    "-q",
    "--header",
    "Accept: text/html",
    "--user=me",
    "http://localhost/",
};

vel_error_t take_vel(const char *argument, void *)
{
    bench::keep(argument);
    return VEL_ERROR_NONE;
}

void options_vel()
{
    std::array<const char *, 12> arguments = kArguments;
    int verbose = 0, quiet = 0, port = 0, limit = 0;
    const char *output = nullptr, *user = nullptr;

    velgetopt *options = vel_getopt_create();
    vel_getopt_flag_set(options, "verbose", 'v', &verbose, "Say what is done.");
    vel_getopt_flag_set(options, "quiet", 'q', &quiet, "Say nothing.");
    vel_getopt_int(options, "port", 'p', &port, "PORT", "Port to connect to.");
    vel_getopt_int(options, "limit", 'l', &limit, "BYTES", "Bytes to take at most.");
    vel_getopt_const_string(options, "output", 'o', &output, "FILE", "File to write to.");
    vel_getopt_const_string(options, "user", 'u', &user, "USER", "Name of the user.");
    vel_getopt_string_callback(options, "header", 'H', "HEADER", "Header to add.", take_vel,
                               nullptr);
    require(vel_getopt_parse(options, static_cast<int>(arguments.size()),
                             const_cast<char **>(arguments.data())) == 0);
    require(vel_getopt_optind(options) == 11 && verbose && quiet && port == 8080 && limit == 1000);
    vel_getopt_destroy(options);
}

gboolean take_glib(const gchar *, const gchar *value, gpointer, GError **)
{
    bench::keep(value);
    return TRUE;
}

void options_glib()
{
    std::array<const char *, 12> arguments = kArguments;
    gboolean verbose = FALSE, quiet = FALSE;
    gint port = 0, limit = 0;
    gchar *output = nullptr, *user = nullptr;
    const GOptionEntry entries[] = {
        {"verbose", 'v', 0, G_OPTION_ARG_NONE, &verbose, "Say what is done.", nullptr},
        {"quiet", 'q', 0, G_OPTION_ARG_NONE, &quiet, "Say nothing.", nullptr},
        {"port", 'p', 0, G_OPTION_ARG_INT, &port, "Port to connect to.", "PORT"},
        {"limit", 'l', 0, G_OPTION_ARG_INT, &limit, "Bytes to take at most.", "BYTES"},
        {"output", 'o', 0, G_OPTION_ARG_STRING, &output, "File to write to.", "FILE"},
        {"user", 'u', 0, G_OPTION_ARG_STRING, &user, "Name of the user.", "USER"},
        {"header", 'H', 0, G_OPTION_ARG_CALLBACK, reinterpret_cast<void *>(take_glib),
         "Header to add.", "HEADER"},
        {},
    };

    GOptionContext *options = g_option_context_new(nullptr);
    g_option_context_add_main_entries(options, entries, nullptr);
    g_option_context_set_strict_posix(options, TRUE);
    int argc = static_cast<int>(arguments.size());
    char **argv = const_cast<char **>(arguments.data());
    require(g_option_context_parse(options, &argc, &argv, nullptr));
    require(argc == 2 && verbose && quiet && port == 8080 && limit == 1000);
    g_option_context_free(options);
    g_free(output);
    g_free(user);
}

/* ---- Translations ---- */

constexpr size_t kMessages = 10000;

std::string message(size_t i)
{
    return "Message number " + std::to_string(i) + " of the program";
}

/* A directory with the catalogue in both forms. */
class catalogue {
  public:
    catalogue()
    {
        char path[] = "/tmp/vel-bench-XXXXXX";
        require(mkdtemp(path));
        root_ = path;
        std::filesystem::create_directories(root_ / "vel");
        std::filesystem::create_directories(root_ / "xx" / "LC_MESSAGES");
        std::ofstream file(source());
        file << "msgid \"\"\nmsgstr \"\"\n\"Content-Type: text/plain; charset=UTF-8\\n\"\n";
        for (size_t i = 0; i < kMessages; i++)
            file << "\n#: source/file" << i / 50 << ".c:" << i << "\nmsgid \"" << message(i)
                 << "\"\nmsgstr \"Meldung Nummer " << i << " des Programms\"\n";
        file.close();
        const std::string compiled = root_ / "xx" / "LC_MESSAGES" / "vel.mo";
        require(system(("msgfmt -o " + compiled + " " + source()).c_str()) == 0);
    }

    ~catalogue()
    {
        std::filesystem::remove_all(root_);
    }

    std::string root() const
    {
        return root_;
    }

    std::string source() const
    {
        return root_ / "vel" / "xx.po";
    }

  private:
    std::filesystem::path root_;
};

vellocalization *load_vel(const std::string &root)
{
    vellocalization *localization = vel_localization_create();
    require(vel_localization_load_utf8(localization, root.c_str(), "vel") == VEL_ERROR_NONE);
    return localization;
}

void load_gettextpo(const std::string &source)
{
    static const po_xerror_handler handler = {
        [](int, po_message_t, const char *, size_t, size_t, int, const char *) { abort(); },
        [](int, po_message_t, const char *, size_t, size_t, int, const char *, po_message_t,
           const char *, size_t, size_t, int, const char *) { abort(); }};
    po_file_t file = po_file_read(source.c_str(), &handler);
    require(file);
    po_file_free(file);
}

void measure_translations()
{
    const catalogue catalogue;
    bench::measure("ms", "load 10000 messages",
                   {{"vellib", [&] { vel_localization_destroy(load_vel(catalogue.root())); }},
                    {"gettext-po", [&] { load_gettextpo(catalogue.source()); }}},
                   31, 1, 1e6);

    /* gettext() translates in no "C" locale. */
    require(setlocale(LC_ALL, "C.UTF-8") && setenv("LANGUAGE", "xx", 1) == 0);
    require(bindtextdomain("vel", catalogue.root().c_str()) && textdomain("vel"));

    std::vector<std::string> messages;
    for (size_t i = 0; i < kMessages; i++)
        messages.push_back(message(i * 7919 % kMessages));
    vellocalization *localization = load_vel(catalogue.root());
    vellanguage *language = vel_localization_language_get(localization, "xx");
    for (const std::string &text : messages)
        require(vel_localization_localize(language, text.c_str()) ==
                std::string(gettext(text.c_str())));

    bench::measure("ns", "look up, of 10000 messages",
                   {{"vellib",
                     [&] {
                         for (const std::string &text : messages)
                             bench::keep(vel_localization_localize(language, text.c_str()));
                     }},
                    {"gettext",
                     [&] {
                         for (const std::string &text : messages)
                             bench::keep(gettext(text.c_str()));
                     }}},
                   31, 1, kMessages);
    vel_localization_destroy(localization);
}

} // namespace

int main()
{
    vel_log_stderr_disable(nullptr);
    bench::measure("ns", "declare 7 options, parse 12 arguments",
                   {{"vellib", options_vel}, {"GOption", options_glib}}, 101, 200, 1);
    measure_translations();
    return 0;
}
