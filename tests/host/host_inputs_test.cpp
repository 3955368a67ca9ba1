// Which pictures a command line names and where their results go: folders, lists, the standard streams, suffixes, and what is
// left alone.
#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host.h"
#include "judged_pictures.h"

namespace {

using namespace ko_test;
namespace fs = std::filesystem;

class HostInputs : public Host {
  protected:
    // Writes pictures of different levels, so that each result can be recognised.
    void put_pictures(const Words &names) {
        for (size_t i = 0; i < names.size(); ++i) {
            const auto shade = static_cast<uint32_t>(i);
            put(names[i], png_file({40, 40, 8},
                                   [shade](uint32_t x, uint32_t y, uint32_t c) { return (dark(x, y, c) + shade * 7) % 120; }));
        }
    }

    Pixels result(const std::string &name) const { return png_pixels(read_bytes(path(name))); }
    Pixels enhanced(const std::string &name) const { return expected(png_pixels(read_bytes(path(name)))); }

    Outcome enhance(const Words &inputs, const std::string &output, Words options = {}) const {
        options.push_back("--force");
        return run_command("enhance", inputs, output, options);
    }
};

TEST_F(HostInputs, AFolderIsItsPicturesByName) {
    put_pictures({"in/b.png", "in/a.png", "in/deep/c.png", "in/.hidden.png"});
    put("in/notes.txt", "no picture");
    const Outcome outcome = enhance({path("in")}, path("out"));
    expect_success(outcome);
    ASSERT_EQ(outcome.out_lines().size(), 2u) << outcome.out;
    EXPECT_TRUE(outcome.out_lines()[0].starts_with(path("in/a.png") + ": "));
    EXPECT_TRUE(outcome.out_lines()[1].starts_with(path("in/b.png") + ": "));
    EXPECT_EQ(result("out/a.png"), enhanced("in/a.png"));
    EXPECT_EQ(result("out/b.png"), enhanced("in/b.png"));
    EXPECT_FALSE(exists(path("out/deep")));
}

TEST_F(HostInputs, RecursiveKeepsTheStructure) {
    put_pictures({"in/a.png", "in/x/a.png", "in/x/y/b.png", "in/.trash/c.png"});
    expect_success(enhance({path("in")}, path("out"), {"--recursive"}));
    for (const std::string name : {"a.png", "x/a.png", "x/y/b.png"}) {
        EXPECT_EQ(result("out/" + name), enhanced("in/" + name)) << name;
    }
    EXPECT_FALSE(exists(path("out/.trash")));
}

TEST_F(HostInputs, ResultsWithinTheInputFolderAreNotTakenAgain) {
    put_pictures({"in/a.png", "in/x/b.png"});
    for (int run = 0; run < 2; ++run) {
        const Outcome outcome = enhance({path("in")}, path("in/better"), {"--recursive", "--again"});
        expect_success(outcome);
        EXPECT_EQ(outcome.out_lines().size(), 2u) << outcome.out;
    }
    EXPECT_FALSE(exists(path("in/better/better")));
}

TEST_F(HostInputs, LinksThatLeadBackAreNotFollowed) {
    put_pictures({"in/a.png"});
    fs::create_directory_symlink(path("in"), path("in/again"));
    const Outcome outcome = enhance({path("in")}, path("out"), {"--recursive"});
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines().size(), 1u);
}

TEST_F(HostInputs, AFolderWithoutPicturesIsAnError) {
    put("in/notes.txt", "no picture");
    const Outcome outcome = enhance({path("in")}, path("out"), {"--recursive"});
    expect_one_error(outcome, path("in") + ": no pictures in this folder");
}

TEST_F(HostInputs, AListNamesFurtherOnes) {
    put_pictures({"a.png", "b.png", "c d.png"});
    const std::string zero(1, '\0');
    for (const std::string &end : {std::string("\n"), std::string("\r\n"), zero}) {
        put("list", path("b.png") + end + end + path("c d.png") + end + path("a.png"));
        const Outcome outcome = enhance({path("a.png")}, path("out"), {"--files-from", path("list"), "--again"});
        expect_success(outcome);
        ASSERT_EQ(outcome.out_lines().size(), 3u) << "what is named twice is done once";
        EXPECT_TRUE(outcome.out_lines()[2].starts_with(path("c d.png") + ": "));
    }
    expect_one_error(enhance({path("a.png")}, path("out"), {"--files-from", path("none")}),
                     path("none") + ": cannot be read: No such file or directory");
}

TEST_F(HostInputs, ASuffixPutsResultsBesideTheirInputs) {
    put_pictures({"x/a.png", "y/b.png"});
    expect_success(enhance({path("x/a.png"), path("y/b.png")}, "", {"--suffix", "-better"}));
    EXPECT_EQ(result("x/a-better.png"), enhanced("x/a.png"));
    EXPECT_EQ(result("y/b-better.png"), enhanced("y/b.png"));
    expect_success(enhance({path("x/a.png")}, path("out/"), {"--suffix", ".2"}));
    EXPECT_TRUE(exists(path("out/a.2.png")));
}

TEST_F(HostInputs, NoClobberLeavesExistingFilesAlone) {
    put_pictures({"a.png", "b.png"});
    put("out/a.png", "mine");
    const Outcome outcome = enhance({path("a.png"), path("b.png")}, path("out"), {"-n"});
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines()[0], path("a.png") + ": skipped: " + path("out/a.png") + " exists");
    EXPECT_EQ(read_bytes(path("out/a.png")), "mine");
    EXPECT_EQ(result("out/b.png"), enhanced("b.png"));
    const Outcome objects = enhance({path("a.png")}, path("out"), {"-n", "--json"});
    EXPECT_NE(objects.out.find("\"decision\":\"skipped\""), std::string::npos);
}

TEST_F(HostInputs, ADryRunWritesNothing) {
    put("in/a.png", judged_png({}));
    put("in/b.png", judged_png({64, 0, 0}));
    const std::set<std::string> before = left();
    const Outcome outcome = run_command("enhance", {path("in")}, path("out"), {"--dry-run"});
    expect_success(outcome);
    ASSERT_EQ(outcome.out_lines().size(), 2u);
    EXPECT_TRUE(matches(outcome.out_lines()[0], ", enhanced, " + time_shown + ", nothing written$")) << outcome.out;
    EXPECT_TRUE(matches(outcome.out_lines()[1], ", left as it is: .*, nothing written$")) << outcome.out;
    EXPECT_EQ(left(), before);
}

// ---- the standard streams, and signals

struct Streams {
    std::string in; // paths
    std::string out;
    std::string err;
};

pid_t start(const Words &words, const Streams &streams) {
    const pid_t child = fork();
    if (child == 0) {
        const auto open_as = [](int stream, const std::string &file, int flags) {
            const int descriptor = open(file.c_str(), flags, 0600);
            dup2(descriptor, stream);
            close(descriptor);
        };
        open_as(STDIN_FILENO, streams.in, O_RDONLY);
        open_as(STDOUT_FILENO, streams.out, O_WRONLY | O_CREAT | O_TRUNC);
        open_as(STDERR_FILENO, streams.err, O_WRONLY | O_CREAT | O_TRUNC);
        std::vector<char *> arguments{const_cast<char *>(KO_PROGRAM)};
        for (const std::string &word : words) {
            arguments.push_back(const_cast<char *>(word.c_str()));
        }
        arguments.push_back(nullptr);
        execv(KO_PROGRAM, arguments.data());
        _exit(127);
    }
    return child;
}

TEST_F(HostInputs, PicturesPassThroughTheStandardStreams) {
    put_pictures({"a.png"});
    int status = -1;
    waitpid(start({"enhance", "--force", "-", "-o", "-"}, {path("a.png"), path("out.png"), path("err")}), &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(result("out.png"), enhanced("a.png"));
    EXPECT_TRUE(matches(read_bytes(path("err")), "^-: 40 x 40, enhanced, " + time_shown + "\n$")) << read_bytes(path("err"));
    waitpid(start({"enhance", "--force", "-", "-o", "-"}, {path("err"), path("none"), path("err2")}), &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(read_bytes(path("none")), "") << "no part of a picture";
    expect_wrong_usage(enhance({path("a.png"), path("out.png")}, "-"), "the standard output takes one picture, not 2");
    expect_wrong_usage(enhance({"-"}, path("folder/")),
                       "a picture from the standard input has no name; give an output file or -");
}

TEST_F(HostInputs, AnInterruptedRunLeavesNoPartsAndGoesOn) {
    Words names;
    for (int i = 0; i < 30; ++i) {
        names.push_back("in/" + std::to_string(i) + ".png");
        put(names.back(), png_file({500, 400, 8}, [i](uint32_t x, uint32_t y, uint32_t c) {
                return dark_texture(x + static_cast<uint32_t>(i), y * 3 + c);
            }));
    }
    expect_success(enhance({path("in")}, path("whole")));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        fs::remove_all(path("cut"));
        const pid_t child =
            start({"enhance", "--force", path("in"), "-o", path("cut")}, {"/dev/null", path("log"), path("err")});
        const auto written = [this] {
            return exists(path("cut")) ? std::distance(fs::directory_iterator(path("cut")), {}) : 0;
        };
        while (written() < 3) {
            usleep(1000);
        }
        kill(child, signal);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal);
        EXPECT_LT(written(), 30) << "it came too late";
        for (const auto &entry : fs::directory_iterator(path("cut"))) {
            const std::string name = entry.path().filename().string();
            EXPECT_EQ(read_bytes(entry.path().string()), read_bytes(path("whole/" + name))) << name;
        }
        expect_success(enhance({path("in")}, path("cut"), {"--no-clobber"}));
        for (const auto &entry : fs::directory_iterator(path("whole"))) {
            const std::string name = entry.path().filename().string();
            EXPECT_EQ(read_bytes(path("cut/" + name)), read_bytes(entry.path().string())) << name;
        }
    }
}

// A second run takes its own results for none of its inputs.
TEST_F(HostInputs, WithASuffixGoOnWhereTheyWereCut) {
    put_pictures({"in/a.png", "in/b.png"});
    expect_success(enhance({path("in")}, "", {"--suffix", "-better"}));
    const std::string first = read_bytes(path("in/a-better.png"));
    fs::remove(path("in/a-better.png"));
    const Outcome outcome = enhance({path("in")}, "", {"--suffix", "-better", "--no-clobber"});
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines().size(), 2u) << outcome.out;
    EXPECT_EQ(read_bytes(path("in/a-better.png")), first);
    const Outcome named = enhance({path("in/a.png"), path("in/a-better.png")}, "", {"--suffix", "-better"});
    expect_success(named);
    EXPECT_EQ(named.out_lines().back(), path("in/a-better.png") + ": skipped: its name has the suffix of a result");
    EXPECT_EQ(left(), (std::set<std::string>{"in", "in/a.png", "in/b.png", "in/a-better.png", "in/b-better.png"}));
}

TEST_F(HostInputs, OfAFolderAreRegularFiles) {
    put_pictures({"in/a.png"});
    ASSERT_EQ(mkfifo(path("in/pipe.png").c_str(), 0600), 0);
    const Outcome outcome = enhance({path("in")}, path("out"));
    expect_success(outcome);
    EXPECT_EQ(outcome.out_lines().size(), 1u);
}

} // namespace
