// Any bytes as encoded text and as text to encode, in memory of exactly the documented sizes.
#include <qiven/matrix.h>

#include <cstring>
#include <memory>

#include "fuzz.h"

namespace {

using fuzz::Require;

constexpr size_t kBlock = 8;
constexpr size_t kTextMax = 32760;

// Runs one direction of the codec; "" if it refuses, which must leave the output alone.
template <class Code>
std::string Run(Code code, const std::string &input, size_t cbOutput) {
    const std::unique_ptr<char[]> output(new char[cbOutput]);
    memset(output.get(), '#', cbOutput);
    const int iResult = code(input.c_str(), output.get());
    if (iResult < 0) {
        Require(std::string(output.get(), cbOutput) == std::string(cbOutput, '#'),
                "a refusal leaves the output alone");
        return "";
    }
    const std::string text = output.get();
    Require(text.size() == static_cast<size_t>(iResult), "the result is the length of the text");
    return text;
}

std::string Decode(const std::string &encoded) {
    return Run(MatrixDecode, encoded, encoded.size() / 2 + 1);
}

void RequireComesBack(const std::string &text) {
    const size_t cbEncoded = 2 * ((text.size() + kBlock - 1) / kBlock * kBlock);
    const std::string encoded = Run(MatrixEncode, text, cbEncoded + 1);
    Require(encoded.size() == (text.size() > kTextMax ? 0 : cbEncoded), "an encoding has its length");
    Require(text.size() > kTextMax || Decode(encoded) == text, "a text comes back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t cbData) {
    const std::string input(fuzz::AsText(pData, cbData).substr(0, fuzz::AsText(pData, cbData).find('\0')));
    RequireComesBack(input);
    RequireComesBack(Decode(input));
    return 0;
}
