#pragma once

#include "matrix.h"

#include <memory>

// A failed update, then a failure in the rescue that follows, then a rescue without one: every
// fault of every transfer, twice. There are far too many to run them all every day.
class TwiceMatrix
{
public:
    // Packages are written to that folder.
    explicit TwiceMatrix(const QString &packages);
    ~TwiceMatrix();
    TwiceMatrix(const TwiceMatrix &) = delete;
    TwiceMatrix &operator=(const TwiceMatrix &) = delete;

    int size() const;
    // How many pairs of requests are struck, one in each of the two tries.
    int requestPairs() const;

    // At least so many, which hold every such pair. The same seed makes the same choice.
    Operation sample(unsigned seed, int least) const;
    // Those with numbers from `from` up to the one before `to`.
    Operation part(int from, int to) const;

private:
    struct Content;
    std::unique_ptr<Content> content;
};
