// Help, manual page and completions, which all come from one table.
#include <cstdlib>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/program_support.h"

namespace {

using MD::test::contentsOf;
using MD::test::Program;
using MD::test::Result;

std::vector<std::string> linesIn(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

class Help : public Program {
 protected:
  /// The indented lines under a heading, up to the next line that is not.
  static std::vector<std::string> under(const std::string& heading, const std::string& help) {
    const std::vector<std::string> lines = linesIn(help);
    auto line = std::find(lines.begin(), lines.end(), heading);
    std::vector<std::string> found;
    if (line != lines.end()) {
      for (++line; line != lines.end() && line->rfind("  ", 0) == 0; ++line) {
        found.push_back(line->substr(2));
      }
    }
    return found;
  }

  /// Every command line that has a help of its own: "", "encode", "dict", "dict check" and the others.
  static std::vector<std::string> commands(const std::string& outer = {}) {
    std::vector<std::string> all{outer};
    for (const std::string& line : under("Subcommands:", mdmsg(outer + " --help").out)) {
      const std::string name = line.substr(0, line.find(' '));
      if (!name.empty()) {
        const auto inner = commands(outer.empty() ? name : outer + ' ' + name);
        all.insert(all.end(), inner.begin(), inner.end());
      }
    }
    return all;
  }

  /// The long options that a help lists.
  static std::vector<std::string> optionsIn(const std::string& help) {
    std::vector<std::string> options;
    for (const std::string& line : under("Options:", help)) {
      const std::size_t begin = line.size() > 3 && line[0] == '-' && line[2] == ',' ? 3 : 0;
      if (line.compare(begin, 2, "--") == 0) {
        options.push_back(line.substr(begin, line.find_first_of(" ,", begin) - begin));
      }
    }
    return options;
  }
};

TEST_F(Help, EveryCommandHasExamplesToCopy) {
  const std::vector<std::string> all = commands();
  for (const char* const expected :
       {"encode",     "decode",       "convert",   "filter",    "merge",       "diff",         "dump", "stats",
        "generate",   "replay",       "listen",    "publish",   "subscribe",   "wireshark",    "help", "dict",
        "dict check", "dict convert", "dict diff", "dict show", "dict derive", "dict generate"}) {
    EXPECT_NE(std::find(all.begin(), all.end(), expected), all.end()) << expected;
  }
  for (const std::string& command : all) {
    SCOPED_TRACE(command);
    const Result help = mdmsg(command + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    const auto examples = under("Examples:", help.out);
    EXPECT_GE(examples.size(), 3U);
    for (const std::string& example : examples) {
      EXPECT_NE(example.find(command.empty() ? "mdmsg " : "mdmsg " + command), std::string::npos) << example;
    }
  }
}

TEST_F(Help, IsACommandAsWell) {
  EXPECT_EQ(mdmsg("help"), mdmsg("--help"));
  EXPECT_EQ(mdmsg("help stats"), mdmsg("stats --help"));
  EXPECT_EQ(mdmsg("help dict check"), mdmsg("dict check --help"));
  EXPECT_EQ(mdmsg("help dict"), mdmsg("dict --help"));
  EXPECT_EQ(mdmsg("help help"), mdmsg("help --help"));
  EXPECT_EQ(mdmsg("help frobnicate"), (Result{"", "mdmsg: unknown command \"frobnicate\"\n", 2}));
  EXPECT_EQ(mdmsg("help stat"), (Result{"", "mdmsg: unknown command \"stat\"; did you mean stats?\n", 2}));
  EXPECT_EQ(mdmsg("help stats check"), (Result{"", "mdmsg: unknown command \"check\"\n", 2}));
}

TEST_F(Help, FrequentOptionsHaveShortNames) {
  const std::string three = mdmsg("generate -n 3 --encodings mInt").out;
  EXPECT_EQ(three, mdmsg("generate --count 3 --encodings mInt").out);
  EXPECT_EQ(std::count(three.begin(), three.end(), '\n'), 3);
  EXPECT_EQ(mdmsg("decode -n2 --json", three), mdmsg("decode --limit 2 --format json", three));
  EXPECT_EQ(mdmsg("diff --json -n 1 - stdin", three).status, 0);
  EXPECT_EQ(mdmsg("stats --csv", three), mdmsg("stats --format csv", three));
  EXPECT_EQ(mdmsg("stats --json", three), mdmsg("stats --format json", three));
  EXPECT_EQ(mdmsg("encode --encoding mInt --csv", "BID\n1.5\n"),
            mdmsg("encode --encoding mInt --from csv", "BID\n1.5\n"));
  EXPECT_EQ(mdmsg("decode --json -o out", three), (Result{"", "", 0}));
  EXPECT_EQ(contentsOf("out"), mdmsg("decode --json", three).out);
  EXPECT_EQ(mdmsg("encode --encoding mInt --separator tab"),
            (Result{"", "mdmsg: --separator requires --from csv\n", 2}));
}

TEST_F(Help, ExamplesUseOptionsThatThereAre) {
  for (const std::string& command : commands()) {
    const std::string help = mdmsg(command + " --help").out;
    const auto options = optionsIn(help);
    for (const std::string& example : under("Examples:", help)) {
      // The part of a pipe that is about this command.
      const std::size_t begin = example.find("mdmsg " + command);
      std::istringstream words(example.substr(begin, example.find('|', begin) - begin));
      for (std::string word; !command.empty() && words >> word;) {
        if (word.rfind("--", 0) == 0 && word != "--") {
          EXPECT_NE(std::find(options.begin(), options.end(), word), options.end()) << example;
        }
      }
    }
  }
}

TEST_F(Help, TheManualPageHoldsEveryCommandAndOption) {
  const std::string page = mdmsg("describe man").out;
  const auto holds = [&](std::string text) {
    for (std::size_t at = text.find('-'); at != text.npos; at = text.find('-', at + 2)) {
      text.replace(at, 1, "\\-");
    }
    return page.find(text) != page.npos;
  };
  for (const std::string& command : commands()) {
    EXPECT_TRUE(command.empty() || command == "dict" || holds(".SS mdmsg " + command + '\n')) << command;
    for (const std::string& option : optionsIn(mdmsg(command + " --help").out)) {
      EXPECT_TRUE(holds("\\fB" + option + "\\fR")) << option;
    }
  }
  EXPECT_EQ(page.find("mdmsg describe"), page.npos);
}

TEST_F(Help, TheExamplesOfTheManualPageHaveOneHeading) {
  const std::string page = mdmsg("describe man").out;
  const std::size_t heading = page.find(".SH EXAMPLES\n");
  ASSERT_NE(heading, page.npos);
  EXPECT_EQ(page.substr(heading),
            ".SH EXAMPLES\n"
            ".RS 4\n"
            ".nf\n"
            "echo \\(aq{\\(dqSYMBOL\\(dq:\\(dqAB\\(dq,\\(dqBID\\(dq:101.25}\\(aq | mdmsg encode \\-\\-encoding mInt | "
            "mdmsg decode\n"
            "mdmsg decode \\-\\-format json feed.pcap\n"
            "mdmsg convert \\-\\-encoding MsgT quotes.hex > other.hex\n"
            ".fi\n"
            ".RE\n"
            ".PP\n"
            "Run \\(dqmdmsg help COMMAND\\(dq for details.\n");
}

TEST_F(Help, ADescriptionNeedsAForm) {
  EXPECT_EQ(mdmsg("describe"), (Result{"", "mdmsg: FORM is required\nTry \"mdmsg --help\".\n", 2}));
  EXPECT_EQ(mdmsg("describe html"),
            (Result{"", "mdmsg: FORM: html not in {man,bash,zsh,fish}\nTry \"mdmsg --help\".\n", 2}));
}

#ifndef _WIN32

#if defined(MDMSG_HAS_PCAP) && defined(MDMSG_HAS_ZLIB) && defined(MDMSG_HAS_ZSTD)
/// All examples but those that need a network or another program, and those that install.
TEST_F(Help, ExamplesRun) {
  const std::string folder = std::string(MDMSG_PROGRAM).substr(0, std::string(MDMSG_PROGRAM).rfind('/'));
  ASSERT_EQ(setenv("PATH", (folder + ':' + std::getenv("PATH")).c_str(), 1), 0);
  write("prepare",
        "set -e\n"
        "mkdir -p etc symbols\n"
        "mdmsg dict show > etc/field_map.txt\n"
        "for name in field_map old new other; do cp etc/field_map.txt $name.txt; done\n"
        "mdmsg dict convert field_map.txt > FieldDefinition.xml\n"
        "printf '{\"SYMBOL\":\"AB\",\"BID\":101.25,\"ASK\":101.5,\"SEQ\":7,\"RECV_TIME\":1717407000173980747}\\n' > "
        "quotes.json\n"
        "mdmsg encode --encoding mInt quotes.json > quotes.hex\n"
        "for name in old new monday tuesday -quotes; do cp quotes.hex ./$name.hex; done\n"
        "mdmsg encode --encoding mInt --format u32le quotes.json > quotes.bin\n"
        "mdmsg encode --encoding mInt --format u32be quotes.json > feed.bin\n"
        "mdmsg encode --encoding mInt --format pcap --time-field RECV_TIME quotes.json > feed.pcap\n"
        "for name in monday tuesday line_a a b; do cp feed.pcap $name.pcap; done\n"
        "gzip -k feed.pcap\n"
        "mdmsg filter --output line_b.pcap.zst feed.pcap\n"
        "printf 'SYMBOL,BID\\nAB,101.25\\n' > quotes.csv\n"
        "printf 'SYMBOL\\tBID\\nAB\\t101.25\\n' > quotes.tsv\n"
        "gzip -c quotes.csv > ticks.csv.gz\n");
  ASSERT_EQ(std::system("mkdir given && cd given && sh ../prepare"), 0);
  unsigned examples = 0;
  for (const std::string& command : commands()) {
    if (command == "listen" || command == "publish" || command == "replay" || command == "subscribe" ||
        command == "wireshark") {
      continue;
    }
    for (const std::string& example : under("Examples:", mdmsg(command + " --help").out)) {
      SCOPED_TRACE(example);
      if (example.find(" /srv/") != example.npos) {
        continue;
      }
      // What it writes must not be there.
      write("run",
            "rm -rf work && cp -r given work && cd work\n"
            "for option in -o --output; do rm -f -- $(printf '%s\\n' \"$1\" | sed -n \"s/.* $option \\([^ "
            "]*\\).*/\\1/p\"); done\n"
            "eval \"$1\"\n");
      write("example", example);
      const int status = std::system("sh run \"$(cat example)\" >shown 2>reports </dev/null");
      const std::string reports = contentsOf("reports");
      // The broken message that dump shows, and the corrupted ones of generate, are bad data.
      const bool isBad = example.find("6500 | mdmsg dump") != example.npos || example.find("--damaged") != example.npos;
      EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, isBad ? 1 : 0) << reports;
      EXPECT_EQ(reports.find("Try \"mdmsg"), reports.npos) << reports;
      EXPECT_EQ(reports.find("mdmsg: cannot"), reports.npos) << reports;
      ++examples;
    }
  }
  EXPECT_GE(examples, 50U);
}
#endif

class Completion : public Program {
 protected:
  static bool hasProgram(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
  }

  /// What a shell script writes.
  static std::string outputOf(const std::string& interpreter, const std::string& script) {
    write("script", script);
    const int status = std::system((interpreter + " script >shown 2>&1 </dev/null").c_str());
    EXPECT_EQ(status, 0);
    return contentsOf("shown");
  }
};

TEST_F(Completion, TheManualPageIsSetWithoutAWarning) {
  if (!hasProgram("groff")) {
    GTEST_SKIP() << "there is no groff";
  }
  write("mdmsg.1", mdmsg("describe man").out);
  EXPECT_EQ(std::system("groff -man -Tutf8 -ww -z mdmsg.1 >shown 2>&1"), 0);
  EXPECT_EQ(contentsOf("shown"), "");
  EXPECT_EQ(std::system("groff -man -Tascii -P-c mdmsg.1 >shown 2>&1"), 0);
  const std::string page = contentsOf("shown");
  EXPECT_NE(page.find("--first-id"), page.npos);
  // What an apostrophe or a dot at the beginning of a line would swallow.
  EXPECT_NE(page.find("echo '{\"SYMBOL\":\"AB\",\"BID\":101.25}' | mdmsg encode --encoding mInt"), page.npos) << page;
}

TEST_F(Completion, BashCompletesCommandsOptionsAndValues) {
  if (!hasProgram("bash")) {
    GTEST_SKIP() << "there is no bash";
  }
  write("mdmsg.bash", mdmsg("describe bash").out);
  EXPECT_EQ(outputOf("bash",
                     "set -u\n"
                     ". ./mdmsg.bash\n"
                     "complete -p mdmsg\n"
                     "try() {\n"
                     "  COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1)) COMPREPLY=()\n"
                     "  _mdmsg\n"
                     "  echo \"$*: ${COMPREPLY[*]-}\"\n"
                     "}\n"
                     "try mdmsg d\n"
                     "try mdmsg help st\n"
                     "try mdmsg dict c\n"
                     "try mdmsg dict convert --format ''\n"
                     "try mdmsg convert --encoding m\n"
                     "try mdmsg decode --form\n"
                     "try mdmsg decode --format = j\n"
                     "try mdmsg decode --format =\n"
                     "try mdmsg decode --dictionary fi\n"
                     "try mdmsg --v\n"),
            "complete -o default -F _mdmsg mdmsg\n"
            "mdmsg d: decode diff dump dict\n"
            "mdmsg help st: stats\n"
            "mdmsg dict c: check convert\n"
            "mdmsg dict convert --format : text xml\n"
            "mdmsg convert --encoding m: mInt\n"
            "mdmsg decode --form: --format\n"
            "mdmsg decode --format = j: json\n"
            "mdmsg decode --format =: text json csv arrow arrow-file\n"
            "mdmsg decode --dictionary fi: \n"
            "mdmsg --v: --version\n");
}

TEST_F(Completion, FishCompletesCommandsOptionsAndValues) {
  if (!hasProgram("fish")) {
    GTEST_SKIP() << "there is no fish";
  }
  write("mdmsg.fish", mdmsg("describe fish").out);
  EXPECT_EQ(outputOf("HOME=$PWD fish --no-config",
                     "source mdmsg.fish\n"
                     "for line in 'mdmsg dict c' 'mdmsg dict convert --format ' 'mdmsg decode --form' "
                     "'mdmsg decode --format=j' 'mdmsg decode --dictionary fi'\n"
                     "  complete -C $line | string replace -r '\\t.*' ''\n"
                     "end\n"
                     "true\n"),
            "check\n"
            "convert\n"
            "text\n"
            "xml\n"
            "--format\n"
            "--format=json\n"
            "fields.txt\n");
}

TEST_F(Completion, ZshCompletesCommandsAndOptions) {
  if (!hasProgram("zsh")) {
    GTEST_SKIP() << "there is no zsh";
  }
  write("functions/_mdmsg", mdmsg("describe zsh").out);
  // Completion needs a terminal, which a shell of its own is given here.
  const std::string shown = outputOf("timeout 60 zsh -f",
                                     "zmodload zsh/zpty\n"
                                     "zpty shell zsh -f -i\n"
                                     "zpty -w shell \"PS1='> '; fpath=($PWD/functions \\$fpath)\"\n"
                                     "zpty -w shell 'autoload -Uz compinit; compinit -u -D; echo rea\"dy\"'\n"
                                     "zpty -r -m shell text '*ready*'\n"
                                     "zpty -w -n shell $'mdmsg dict c\\t\\t'\n"
                                     "zpty -r -m shell text '*convert*'\n"
                                     "print -r -- $text\n"
                                     "zpty -w -n shell $'\\x15mdmsg decode --form\\t'\n"
                                     "zpty -r -m shell text '*format*'\n"
                                     "print -r -- $text\n"
                                     "zpty -d shell\n");
  EXPECT_NE(shown.find("Report problems of dictionary files"), shown.npos) << shown;
  EXPECT_NE(shown.find("Convert between text and XML"), shown.npos) << shown;
  EXPECT_NE(shown.find("format"), shown.npos) << shown;
}

#endif

}  // namespace
