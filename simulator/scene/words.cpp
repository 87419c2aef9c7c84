#include "words.h"

#include <cctype>
#include <cstdlib>

namespace sim {
namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

// Reads a text up to its closing quote; at stands behind the opening one.
std::string readQuoted(const std::string &line, size_t &at)
{
    std::string text;
    while (at < line.size()) {
        char c = line[at++];
        if (c == '"') {
            return text;
        }
        if (c == '\\' && at < line.size()) {
            c = line[at++];
        }
        text += c;
    }
    throw SceneError("text without its closing quote '\"" + text + "'");
}

std::string readPlain(const std::string &line, size_t &at)
{
    std::string text;
    while (at < line.size() && !isBlank(line[at]) && line[at] != '#' && line[at] != '"') {
        text += line[at++];
    }
    return text;
}

} // namespace

std::vector<Word> splitWords(const std::string &line)
{
    std::vector<Word> words;
    for (size_t at = 0; at < line.size();) {
        if (isBlank(line[at])) {
            ++at;
        } else if (line[at] == '#') {
            break;
        } else if (line[at] == '"') {
            ++at;
            words.push_back({readQuoted(line, at), true});
        } else {
            words.push_back({readPlain(line, at), false});
        }
    }
    return words;
}

void WordReader::expectEnd() const
{
    if (!atEnd()) {
        throw SceneError("unexpected word '" + words[at].text + "'");
    }
}

std::string WordReader::next(const std::string &what)
{
    if (!atEnd()) {
        return words[at++].text;
    }
    const std::string last = words.empty() ? std::string() : " after '" + words.back().text + "'";
    throw SceneError("missing " + what + last);
}

bool WordReader::accept(const std::string &word)
{
    if (atEnd() || words[at].quoted || words[at].text != word) {
        return false;
    }
    ++at;
    return true;
}

std::string WordReader::quotedText(const std::string &what)
{
    if (!atEnd() && !words[at].quoted) {
        throw SceneError(what + " '" + words[at].text + "' is not in quotes");
    }
    return next(what);
}

uint32_t WordReader::number(const std::string &what, uint32_t least, uint32_t most)
{
    return parseNumber(next(what), what, least, most);
}

uint32_t parseNumber(const std::string &word, const std::string &what, uint32_t least,
                     uint32_t most)
{
    const bool hexadecimal =
        word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    char *end = nullptr;
    const unsigned long long value = std::strtoull(word.c_str(), &end, hexadecimal ? 16 : 10);
    const bool starts = !word.empty() && std::isdigit(static_cast<unsigned char>(word[0]));
    if (!starts || *end != '\0' || value < least || value > most) {
        throw SceneError(what + " '" + word + "' is not a number from " + std::to_string(least) +
                         " to " + std::to_string(most));
    }
    return static_cast<uint32_t>(value);
}

void failUnknown(const std::string &word)
{
    throw SceneError("unknown word '" + word + "'");
}

} // namespace sim
