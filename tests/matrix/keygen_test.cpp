// Runs the generator as a user would.
#include <sys/wait.h>

#include <cstdio>
#include <set>
#include <tuple>
#include <vector>

#include "matrix/key_conditions.h"

namespace {

struct Outcome {
    int iStatus;
    std::string output;
};

// NOLINTBEGIN(cert-env33-c): a fixed command, redirections included.
Outcome Keygen(const std::string &arguments) {
    Outcome run{-1, ""};
    FILE *pPipe = popen((std::string(KEYGEN) + " " + arguments).c_str(), "re");
    if (pPipe == nullptr) return run;
    for (int c = fgetc(pPipe); c != EOF; c = fgetc(pPipe))
        run.output += static_cast<char>(c);
    const int iStatus = pclose(pPipe);
    run.iStatus = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    return run;
}
// NOLINTEND(cert-env33-c)

// The numbers in the braces after a name.
template <class Number>
std::vector<Number> Numbers(const std::string &source, const std::string &opening) {
    std::vector<Number> numbers;
    const size_t iOpening = source.find(opening);
    if (iOpening == std::string::npos) return numbers;
    const char *sz = source.c_str() + iOpening + opening.size();
    for (char *szEnd = nullptr; true; sz = szEnd + 1) {
        const long l = strtol(sz, &szEnd, 10);
        if (szEnd == sz || *szEnd != ',') return numbers;
        numbers.push_back(static_cast<Number>(l));
    }
}

TEST(MatrixKeygen, DrawsSoundAndDifferentKeyData) {
    std::set<std::string> outputs;
    for (int i = 0; i < 20; i++) {
        const Outcome run = Keygen("2>&1");
        ASSERT_EQ(0, run.iStatus);
        outputs.insert(run.output);
        CheckKey(Numbers<double>(run.output, "mtrx64 = {8, 8, {"),
                 Numbers<double>(run.output, "mtri64 = {8, 8, {"));
        const std::string opening = "mapd2c[65] = \"";
        CheckAlphabet(run.output.substr(run.output.find(opening) + opening.size(), 64),
                      Numbers<int>(run.output, "mapc2d[128] = {"));
    }
    EXPECT_EQ(20U, outputs.size());
}

TEST(MatrixKeygen, SaysHowItIsUsedAndWhatWentWrong) {
    const std::tuple<const char *, int, const char *> rgCases[] = {
        {"--help", 0, "Usage: matrix-keygen > src/matrix/key_data.cpp\n"},
        {"--size 9 2>&1", 2, "matrix-keygen: unexpected argument '--size'; see matrix-keygen --help\n"},
        {"2>&1 >/dev/full", 3, "matrix-keygen: cannot write to standard output\n"},
    };
    for (const auto &[szArguments, iStatus, szText] : rgCases) {
        const Outcome run = Keygen(szArguments);
        EXPECT_EQ(iStatus, run.iStatus) << szArguments;
        EXPECT_EQ(0U, run.output.find(szText)) << run.output;
    }
}

}  // namespace
