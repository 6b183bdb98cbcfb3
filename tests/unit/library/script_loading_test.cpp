#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "interpreter/dovrel_script.h"

namespace {

namespace fs = std::filesystem;

/// Runs in a fresh directory that holds the files of the test.
class ResolvePath : public testing::Test {
protected:
    ResolvePath() {
        // A name of its own, so that two runs of the tests at once do not meet.
        std::string pattern = fs::path(testing::TempDir()) / "resolve_path_XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no directory " + pattern);
        root_ = pattern;
        fs::current_path(root_);
    }
    ~ResolvePath() override {
        fs::current_path(home_);
        fs::remove_all(root_);
    }

    static void file(const std::string& path) {
        if (fs::path(path).has_parent_path()) fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << "return 1\n";
    }
    /// Resolves with the given tops of the two stacks; null stands for an empty stack.
    std::string resolve(const std::string& path, const char* directory, const char* name) {
        directory_ = directory != nullptr ? directory : "";
        name_ = name != nullptr ? name : "";
        interpreter.baseDirectoryStack.clear();
        interpreter.scriptNameStack.clear();
        if (directory != nullptr) interpreter.baseDirectoryStack = {&below_, &directory_};
        if (name != nullptr) interpreter.scriptNameStack = {&below_, &name_};
        return interpreter.resolvePath(path);
    }

    DovrelScript interpreter;

private:
    const fs::path home_ = fs::current_path();
    fs::path root_;
    const std::string below_ = "below/below.dv";
    std::string directory_;
    std::string name_;
};

TEST_F(ResolvePath, EmptyAndAbsolutePathsStay) {
    file("lib/no/such.dv");
    EXPECT_EQ(resolve("", "lib", nullptr), "");
    EXPECT_EQ(resolve("/no/such.dv", "lib", nullptr), "/no/such.dv");
}

TEST_F(ResolvePath, TheWorkingDirectoryComesFirst) {
    file("a.dv");
    file("lib/a.dv");
    EXPECT_EQ(resolve("a.dv", "lib", nullptr), "a.dv");
    EXPECT_EQ(resolve("./a.dv", "lib", nullptr), "./a.dv");
    EXPECT_EQ(resolve("lib", "lib", nullptr), "lib");  // a directory exists too
}

TEST_F(ResolvePath, TheDirectoryOfTheScriptIsTheBase) {
    file("lib/a.dv");
    file("lib/deep/b.dv");
    file("below/c.dv");
    EXPECT_EQ(resolve("a.dv", "lib", nullptr), "lib/a.dv");
    EXPECT_EQ(resolve("a.dv", "lib/", nullptr), "lib/a.dv");
    EXPECT_EQ(resolve("deep/b.dv", "lib", nullptr), "lib/deep/b.dv");
    EXPECT_EQ(resolve("../lib/a.dv", "lib", nullptr), "lib/../lib/a.dv");
    EXPECT_EQ(resolve("missing.dv", "lib", nullptr), "missing.dv");
    EXPECT_EQ(resolve("c.dv", "lib", nullptr), "c.dv");  // only the top of the stack counts
}

TEST_F(ResolvePath, TheNameOfTheScriptIsTheNextBase) {
    file("lib/a.dv");
    file("other/b.dv");
    EXPECT_EQ(resolve("a.dv", nullptr, "lib/main.dv"), "lib/a.dv");
    EXPECT_EQ(resolve("a.dv", "", "lib/main.dv"), "lib/a.dv");
    EXPECT_EQ(resolve("b.dv", "lib", "other/main.dv"), "b.dv");
    EXPECT_EQ(resolve("a.dv", nullptr, "main.dv"), "a.dv");
    EXPECT_EQ(resolve("a.dv", "", ""), "a.dv");
    EXPECT_EQ(resolve("a.dv", nullptr, nullptr), "a.dv");
}

TEST_F(ResolvePath, TheResourcesFolderIsTheLastBase) {
    file("app/Resources/a.dv");
    file("app/Resources/scripts/b.dv");
    file("app/Resources/ast/scripts/c.dv");
    file("app/Resources/scripts/c.dv");
    for (const char* base : {"app/Resources", "app/Resources/", "app/Resources/deep/deeper"}) {
        EXPECT_EQ(resolve("a.dv", base, nullptr), "app/Resources/a.dv");
        EXPECT_EQ(resolve("ast/scripts/b.dv", base, nullptr), "app/Resources/scripts/b.dv");
        EXPECT_EQ(resolve("ast/scripts/c.dv", base, nullptr), "app/Resources/ast/scripts/c.dv");
        EXPECT_EQ(resolve("ast/scripts/d.dv", base, nullptr), "ast/scripts/d.dv");
        EXPECT_EQ(resolve("ast/scripts", base, nullptr), "app/Resources/ast/scripts");
        EXPECT_EQ(resolve("b.dv", base, nullptr), "b.dv");
    }
    EXPECT_EQ(resolve("a.dv", nullptr, "app/Resources/deep/main.dv"), "app/Resources/a.dv");
}

TEST_F(ResolvePath, TheFirstWholeSegmentIsTheResourcesFolder) {
    file("app/ResourcesOld/a.dv");
    file("app/OldResources/a.dv");
    file("Resources/a.dv");
    file("app/ResourcesOld/Resources/b.dv");
    file("app/Resources/c.dv");
    file("app/Resources/Resources/d.dv");
    EXPECT_EQ(resolve("a.dv", "app/ResourcesOld/sub", nullptr), "a.dv");
    EXPECT_EQ(resolve("a.dv", "app/OldResources/sub", nullptr), "a.dv");
    EXPECT_EQ(resolve("a.dv", "Resources/sub", nullptr), "a.dv");
    EXPECT_EQ(resolve("b.dv", "app/ResourcesOld/Resources/sub", nullptr),
              "app/ResourcesOld/Resources/b.dv");
    EXPECT_EQ(resolve("c.dv", "app/Resources/Resources/sub", nullptr), "app/Resources/c.dv");
    EXPECT_EQ(resolve("d.dv", "app/Resources/Resources/sub", nullptr), "d.dv");
}

}  // namespace
