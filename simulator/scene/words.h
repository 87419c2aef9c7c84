#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace sim {

// Something is wrong with a scene or with a command in its words. The text names the word, and the
// line once the line is known.
class SceneError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct Word
{
    std::string text;
    bool quoted = false;
};

// Splits a line at blanks; texts in double quotes are one word; # outside of a text starts a
// comment.
std::vector<Word> splitWords(const std::string &line);

// Reads the words of a line one after another; every complaint is a SceneError that quotes the
// word.
class WordReader
{
public:
    explicit WordReader(std::vector<Word> line) : words(std::move(line)) {}

    bool atEnd() const { return at == words.size(); }
    // Throws when a word is left over.
    void expectEnd() const;

    // The next word; what describes it in the complaint that it is missing.
    std::string next(const std::string &what);
    // Takes the next word if it is this one.
    bool accept(const std::string &word);
    std::string peek() const { return atEnd() ? std::string() : words[at].text; }
    bool nextIsQuoted() const { return !atEnd() && words[at].quoted; }
    std::string quotedText(const std::string &what);
    // Decimal or 0x hexadecimal.
    uint32_t number(const std::string &what, uint32_t least, uint32_t most);

private:
    std::vector<Word> words;
    size_t at = 0;
};

// The number in a word, which must hold nothing else. Throws "WHAT 'WORD' is not a number from L to
// M".
uint32_t parseNumber(const std::string &word, const std::string &what, uint32_t least,
                     uint32_t most);

[[noreturn]] void failUnknown(const std::string &word);

} // namespace sim
