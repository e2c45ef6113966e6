// The one walk over a strided view as nested lists, in index order: every list of every
// level, and in each innermost level its elements. The position among the outer levels
// is kept in an odometer, not in native frames, so any number of levels can be walked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/view.h"

namespace kerova {

// Walks the levels of `view` from `top` on, with the levels in front held at `origin`.
// The innermost `leafLevels` levels (fewer where fewer remain) go to the visitor in one
// call, so that it can read them in the order that suits memory. The visitor answers:
//
//   bool enter(size_t level, int64_t position)  a list of view.lengths[level] entries
//                                               begins, as entry `position` of the list
//                                               above (0 at the top)
//   bool leaf(int64_t offset, size_t level)     the innermost levels from `level`, at
//                                               `offset`; only for a nonempty level
//   bool leave(size_t level, int64_t position)  the list that enter opened is complete
//
// A false answer ends the walk with false; the visitor keeps the reason.
template <typename Visitor>
bool walkView(const StridedView& view, size_t top, int64_t origin, size_t leafLevels, Visitor& visitor) {
    const size_t n = view.levels();
    StridedView::Levels index(n, 0);
    int64_t offset = origin;
    size_t level = top;
    if (!visitor.enter(level, 0)) return false;
    for (;;) {
        if (view.lengths[level] > 0) {
            if (level + leafLevels < n) {  // into the first entry of the next level
                index[++level] = 0;
                if (!visitor.enter(level, 0)) return false;
                continue;
            }
            if (!visitor.leaf(offset, level)) return false;
        }
        // This level's list is complete: the walk moves on to the next entry of the
        // nearest level above that has one.
        for (;;) {
            if (!visitor.leave(level, level > top ? index[level - 1] : 0)) return false;
            if (level == top) return true;
            --level;
            if (++index[level] < view.lengths[level]) {
                offset += view.strides[level];
                break;
            }
            offset -= view.strides[level] * (view.lengths[level] - 1);
        }
        index[++level] = 0;
        if (!visitor.enter(level, index[level - 1])) return false;
    }
}

}  // namespace kerova
