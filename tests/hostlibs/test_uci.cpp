// SPDX-License-Identifier: ISC
// Reading configuration files: the grammar, its errors, lookups and load codes.
#include "support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

extern "C" {
#include <uci.h>
}

namespace {
// One directory with one file and a context that reads there.
class Config {
public:
    explicit Config(std::string_view text) : ctx(uci_alloc_context())
    {
        write_file(dir / "conf", text);
        uci_set_confdir(ctx, dir.path().c_str());
        code = uci_load(ctx, "conf", &package);
    }
    Config(const Config &) = delete;
    Config &operator=(const Config &) = delete;
    ~Config() { uci_free_context(ctx); }
    std::string dump() const;
    std::string reason() const
    {
        char *text = nullptr;
        uci_get_errorstr(ctx, &text, nullptr);
        std::string copy = text ? text : "";
        free(text);
        return copy;
    }

    TempDir dir;
    uci_context *ctx;
    uci_package *package = nullptr;
    int code;
};

std::string dump_option(const uci_option *o)
{
    std::string text = " " + std::string(o->e.name);
    if (o->type == UCI_TYPE_STRING)
        return text + "=" + o->v.string;
    uci_element *e = nullptr;
    uci_foreach_element(&o->v.list, e) text += "+" + std::string(e->name);
    return text;
}

// type:name opt=value list+item+item; one section per line.
std::string Config::dump() const
{
    std::string text;
    uci_element *s = nullptr, *o = nullptr;
    if (!package)
        return "not loaded";
    uci_foreach_element(&package->sections, s)
    {
        uci_section *section = uci_to_section(s);
        text += std::string(section->type) + ":" + (section->anonymous ? "" : s->name);
        uci_foreach_element(&section->options, o) text += dump_option(uci_to_option(o));
        text += "\n";
    }
    return text;
}

// The value of option v after these lines in one section.
std::string value(const std::string &lines)
{
    Config config("config t s\n" + lines);
    if (!config.package)
        return config.reason();
    uci_section *s = uci_lookup_section(config.ctx, config.package, "s");
    const char *text = s ? uci_lookup_option_string(config.ctx, s, "v") : nullptr;
    return text ? text : "(none)";
}
}  // namespace

TEST(uci, an_ordinary_file_keeps_its_order)
{
    Config config(
        "package other\n\nconfig wifi-device 'radio0'\n\toption type 'mac80211'\n"
        "\toption channel '6'\n\nconfig wifi-iface\n\tlist network 'lan'\n"
        "\tlist network 'wan'\n\toption ssid 'A b'\n");
    EXPECT_EQ(0, config.code);
    EXPECT_STREQ("conf", config.package->e.name);
    EXPECT_EQ(
        "wifi-device:radio0 type=mac80211 channel=6\n"
        "wifi-iface: network+lan+wan ssid=A b\n",
        config.dump());
}

TEST(uci, words_are_pieces_without_blanks_between_them)
{
    const struct {
        const char *lines, *value;
    } rows[] = {
        {"option v pre'mid'\"post\"end", "premidpostend"},
        {"option v 'it'\\''s'", "it's"},
        {"option v 'a\\nb'", "a\\nb"},
        {"option v \"a\\nb\\\"c\\\\\"", "anb\"c\\"},
        {"option v a\\ b\\#c", "a b#c"},
        {"option v 'two\nlines'", "two\nlines"},
        {"option v \"two\nlines\"", "two\nlines"},
        {"option v \"one\\\nline\"", "oneline"},
        {"option v a\\\nb", "ab"},
        {"option v foo#bar", "foo"},
        {"option v 'foo'#bar", "foo"},
        {"option v 'foo#bar'", "foo#bar"},
        {"option v \"foo;bar\"", "foo;bar"},
        {"option v x # comment", "x"},
        {"\t  option\tv\t \tx  ", "x"},
        {"o v x", "x"},
        {"option v x\r\n", "x"},
        {"option v 'x'\r\n# c\r\n\r\n", "x"},
        {"option v x", "x"},
        {"option v x\\", "x"},
        {"option v 'caf\xc3\xa9 \x01'", "caf\xc3\xa9 \x01"},
        {"option option x\noption config y\noption v z", "z"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.value, value(row.lines)) << row.lines;
}

TEST(uci, semicolons_separate_statements_except_behind_a_bare_word)
{
    EXPECT_EQ("2", value("option x '1';option v '2'\n"));
    EXPECT_EQ("2", value("option x 1 ; option v 2\n"));
    EXPECT_EQ("(none)", value("option x 1;option v 2\n"));
    EXPECT_EQ("3", value("option x 1;nonsense\noption v 3\n"));
}

TEST(uci, a_nul_byte_hides_the_rest_of_its_line)
{
    EXPECT_EQ("x", value(std::string("option v x\0y nonsense\noption w 1\n", 33)));
}

TEST(uci, long_values_and_empty_files_are_fine)
{
    std::string text(3000, 'x');
    EXPECT_EQ(text, value("option v '" + text + "'"));
    for (const char *file : {"", "\n\n", "# nothing\n", "   # nothing", "\r\n"}) {
        Config config(file);
        EXPECT_EQ(0, config.code) << file;
        EXPECT_EQ("", config.dump());
    }
}

TEST(uci, an_empty_option_is_no_option_and_clears_nothing)
{
    EXPECT_EQ("(none)", value("option v ''\n"));
    EXPECT_EQ("(none)", value("option v\n"));
    EXPECT_EQ("1", value("option v '1'\noption v ''\n"));
}

TEST(uci, lists_and_options_of_one_name_mix_like_this)
{
    const struct {
        const char *lines, *options;
    } rows[] = {
        {"list v ''\nlist v\n", " v++"},
        {"list v a\nlist v a\n", " v+a+a"},
        {"option v a\noption w b\noption v c\n", " v=c w=b"},
        {"option v a\nlist v b\n", " v+a+b"},
        {"list v a\nlist v b\noption v c\n", " v=c"},
        {"list v a\noption v ''\n", " v+a"},
    };
    for (const auto &row : rows) {
        Config config("config t s\n" + std::string(row.lines));
        EXPECT_EQ("t:s" + std::string(row.options) + "\n", config.dump()) << row.lines;
    }
}

TEST(uci, a_repeated_section_continues_the_earlier_one)
{
    Config config("config t a\noption x 1\nconfig t b\nconfig t a\noption y 2\n");
    EXPECT_EQ("t:a x=1 y=2\nt:b\n", config.dump());
}

TEST(uci, anonymous_sections_get_the_names_that_users_type)
{
    Config config("config a\nconfig wifi-iface\nconfig wifi-iface ''\n");
    const char *names[] = {"cfg01b606", "cfg023579", "cfg033579"};
    uci_element *e = nullptr;
    int i = 0;
    uci_foreach_element(&config.package->sections, e)
    {
        ASSERT_LT(i, 3);
        EXPECT_STREQ(names[i++], e->name);
        EXPECT_TRUE(uci_to_section(e)->anonymous);
    }
    EXPECT_EQ(3, i);
    EXPECT_NE(nullptr, uci_lookup_section(config.ctx, config.package, "cfg033579"));
    Config other("config x y\nconfig foo\n");
    EXPECT_NE(nullptr, uci_lookup_section(other.ctx, other.package, "cfg027389"));
}

TEST(uci, one_bad_line_refuses_the_whole_file_and_says_why)
{
    const struct {
        const char *line, *reason;
    } rows[] = {
        {"nonsense", "invalid command"},
        {"Option v x", "invalid command"},
        {"'option' v x", "invalid command"},
        {"option", "invalid command"},
        {"option\r\n", "invalid command"},
        {"options v x", "invalid command"},
        {"; option v x", "invalid command"},
        {"option v 'x';;option w 'y'", "invalid command"},
        {"option ", "insufficient arguments"},
        {"config \t", "insufficient arguments"},
        {"option v x y", "too many arguments"},
        {"config t s x", "too many arguments"},
        {"option v x y z", "too many arguments"},
        {"package a b", "too many arguments"},
        {"option my-opt x", "invalid character in name field"},
        {"option my.opt x", "invalid character in name field"},
        {"config t my-sec", "invalid character in name field"},
        {"config 'a b'", "invalid character in type field"},
        {"config ''", "invalid character in type field"},
        {"config caf\xc3\xa9", "invalid character in type field"},
        {"config u s", "section of different type overwrites prior section with same name"},
        {"option v 'x", "EOF with unterminated '"},
        {"option v \"x\\", "EOF with unterminated \""},
    };
    for (const auto &row : rows) {
        Config config("config t s\noption ok 1\n" + std::string(row.line) + "\n");
        EXPECT_EQ(UCI_ERR_PARSE, config.code) << row.line;
        EXPECT_EQ(nullptr, config.package) << row.line;
        EXPECT_NE(std::string::npos,
                  config.reason().find("Parse error (" + std::string(row.reason) + ") at line "))
            << row.line << ": " << config.reason();
    }
}

TEST(uci, an_option_needs_a_section)
{
    for (const char *text : {"option v x\n", "list v x\n"}) {
        Config config(text);
        EXPECT_EQ(UCI_ERR_PARSE, config.code);
        EXPECT_NE(std::string::npos,
                  config.reason().find("option/list command found before the first section"));
    }
}

TEST(uci, the_error_text_carries_prefix_and_line)
{
    Config config("config t s\n\nnonsense\n");
    char *text = nullptr;
    uci_get_errorstr(config.ctx, &text, "loading");
    EXPECT_EQ(0u,
              std::string(text).find("loading: Parse error (invalid command) at line 3, byte "));
    free(text);
}

TEST(uci, load_codes_tell_what_is_wrong)
{
    Config config("config t s\n");
    auto load = [&](const char *name) {
        uci_package *p = config.package;
        int code = uci_load(config.ctx, name, &p);
        EXPECT_EQ(config.package, p) << "changed on failure";
        return code;
    };
    mkdir((config.dir / "folder").c_str(), 0700);
    mkfifo((config.dir / "pipe").c_str(), 0600);
    EXPECT_EQ(UCI_ERR_DUPLICATE, load("conf"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, load("missing"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, load("conf/below"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, load("folder"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, load("pipe"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, load(".hidden"));
    EXPECT_EQ(UCI_ERR_INVAL, load(""));
    EXPECT_EQ(UCI_ERR_INVAL, load("a b"));
    EXPECT_EQ(UCI_ERR_INVAL, load("caf\xc3\xa9"));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(nullptr, "conf", nullptr));
}

TEST(uci, an_unreadable_file_is_an_io_error)
{
    if (geteuid() == 0) {
        // Root reads everything; the same answer has to come from a process that is not root.
        TempDir dir;
        chmod(dir.path().c_str(), 0755);
        write_file(dir / "conf", "config t\n");
        chmod((dir / "conf").c_str(), 0);
        EXPECT_EQ(UCI_ERR_IO, in_child([&] {
                      uci_context *ctx = uci_alloc_context();
                      uci_set_confdir(ctx, dir.path().c_str());
                      CHILD_CHECK(setuid(65534) == 0);
                      return uci_load(ctx, "conf", nullptr);
                  }));
        return;
    }
    TempDir dir;
    write_file(dir / "conf", "config t\n");
    chmod((dir / "conf").c_str(), 0);
    uci_context *ctx = uci_alloc_context();
    uci_set_confdir(ctx, dir.path().c_str());
    EXPECT_EQ(UCI_ERR_IO, uci_load(ctx, "conf", nullptr));
    uci_free_context(ctx);
}

TEST(uci, a_path_loads_that_file_under_its_last_name)
{
    Config config("config t s\n");
    write_file(config.dir / "my-conf.d", "config u\n");
    uci_package *p = nullptr;
    EXPECT_EQ(0, uci_load(config.ctx, (config.dir / "my-conf.d").c_str(), &p));
    ASSERT_NE(nullptr, p);
    EXPECT_STREQ("my-conf.d", p->e.name);
    EXPECT_FALSE(p->has_delta);
    EXPECT_EQ(p, uci_lookup_package(config.ctx, "my-conf.d"));
}

TEST(uci, each_load_reads_the_file_anew)
{
    Config config("config t s\n");
    EXPECT_EQ(0, uci_unload(config.ctx, config.package));
    EXPECT_EQ(UCI_ERR_INVAL, uci_unload(config.ctx, nullptr));
    EXPECT_EQ(nullptr, uci_lookup_package(config.ctx, "conf"));
    write_file(config.dir / "conf", "config t z\n");
    EXPECT_EQ(0, uci_load(config.ctx, "conf", &config.package));
    EXPECT_EQ("t:z\n", config.dump());
}

TEST(uci, lookups_of_what_is_not_there_say_so)
{
    Config config("config t s\noption o x\nlist l x\n");
    uci_section *s = uci_lookup_section(config.ctx, config.package, "s");
    ASSERT_NE(nullptr, s);
    EXPECT_STREQ("x", uci_lookup_option_string(config.ctx, s, "o"));
    EXPECT_EQ(nullptr, uci_lookup_option_string(config.ctx, s, "l"));
    EXPECT_EQ(nullptr, uci_lookup_option_string(config.ctx, s, "O"));
    EXPECT_EQ(nullptr, uci_lookup_option(config.ctx, s, "p"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, config.ctx->err);
    EXPECT_EQ(nullptr, uci_lookup_section(config.ctx, config.package, "t"));
    uci_element *e = &s->e;
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_lookup_next(config.ctx, &e, &s->options, "p"));
    EXPECT_EQ(nullptr, e);
    EXPECT_EQ(0, uci_lookup_next(config.ctx, &e, &s->options, "l"));
    EXPECT_EQ(UCI_TYPE_LIST, uci_to_option(e)->type);
}

TEST(uci, the_directory_can_be_set_and_is_copied)
{
    uci_context *ctx = uci_alloc_context();
    EXPECT_STREQ("/etc/config", ctx->confdir);
    EXPECT_EQ(UCI_ERR_INVAL, uci_set_confdir(ctx, nullptr));
    TempDir dir;
    write_file(dir / "conf", "config t s\n");
    std::string path = dir.path() + "/";
    EXPECT_EQ(0, uci_set_confdir(ctx, path.c_str()));
    path[1] = 'X';  // cppcheck-suppress unreadVariable; the library has a copy of it
    EXPECT_EQ(0, uci_load(ctx, "conf", nullptr));
    uci_free_context(ctx);
}

// Every prefix of a file with all kinds of quoting: it loads or it is refused, and never overruns.
TEST(uci, a_file_cut_anywhere_is_loaded_or_refused)
{
    const std::string text =
        "package p\nconfig t 's'\n\toption a pre'mid'\"po\\\"st\"end # c\n"
        "list l 'x' ; list l \"a\\\nb\"\noption b c\\\nd\nconfig u\n";
    for (size_t i = 0; i <= text.size(); i++) {
        Config config(text.substr(0, i));
        EXPECT_TRUE(config.code == UCI_OK || config.code == UCI_ERR_PARSE) << i;
        EXPECT_EQ(config.code == UCI_OK, config.package != nullptr) << i;
    }
}
