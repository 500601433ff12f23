// SPDX-License-Identifier: Apache-2.0
// What a bitmap has to answer, worked out with sets and arithmetic: no records and no words.
//
// A bitmap is a smallest and a largest member, and the set of the positions below the handle. All
// the rest of it follows from that set, except two marks that clearing leaves on empty levels.
#ifndef TARNUTIL_TESTS_EB_MODEL_H
#define TARNUTIL_TESTS_EB_MODEL_H

#include <cstdint>
#include <set>
#include <utility>

namespace tarnutil_test {

class EbModel {
public:
    using Position = std::uint64_t;

    static constexpr Position kNone = ~Position{0};
    static constexpr Position kTop = 512 * 1024;  // positions of a top
    static constexpr Position kLeaf = 1024;       // positions of a leaf
    static constexpr Position kAux = 256;         // tops of a record of top_aux

    explicit EbModel(Position positionCount) : topCount(positionCount / kTop) {}

    void set(Position p);
    void clear(Position p);
    void clearTop(Position p);
    bool isSet(Position p) const;
    Position findNext(Position p) const;

    // The fields of the handle.
    Position min() const { return smallest; }
    Position max() const { return largest; }
    Position minTop() const;
    Position maxTop() const;

    // The smallest and the largest of a level, as its header holds them.
    using Extremes = std::pair<Position, Position>;
    Extremes top(Position t) const;
    Extremes leaf(Position t, Position l) const;  // bits within the leaf
    Extremes summary(Position t) const;           // leaves within the top
    Extremes aux(Position record) const;          // tops within the record

    // All positions below the handle: the members but the smallest, which may be here as well.
    const std::set<Position>& below() const { return tops; }

private:
    using Iterator = std::set<Position>::const_iterator;

    bool topHolds(Position t) const;
    Position firstOf(Position t) const;  // of a top that holds something
    Position lastOf(Position t) const;
    Extremes inLeaves(Position from, Position to) const;
    Position findNextInTop(Position p) const;
    Position findNextTop() const;
    Position secondTopFrom(Position from, Position to) const;
    void markCleared(Position p);

    Position topCount;
    Position smallest = kNone;
    Position largest = 0;
    std::set<Position> tops;
    std::set<Position> allOnesMax;  // empty tops whose maximum reads all-ones
    bool allOnesMaxTop = false;     // there is no top, and the largest reads all-ones
};

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_EB_MODEL_H
