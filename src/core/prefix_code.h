// Optimal prefix-code lengths from sorted weights, in place: the one home of the step that the
// deflate and block-sorting code builders share (each then limits the lengths its own way).
#pragma once

#include <stdint.h>

namespace zem {

// For weights a[0..n) in ascending order (n >= 2), replaces a[i] by the code length of the i-th
// lightest symbol, computed in place after Moffat and Katajainen: the weight array doubles as
// the tree, so no nodes beyond it are needed. W is wide enough for the sum of the weights.
template <class W>
void prefix_code_lengths(W* a, int32_t n) {
    a[0] += a[1];
    int32_t root = 0, leaf = 2;
    for (int32_t next = 1; next < n - 1; ++next) {
        if (leaf >= n || a[root] < a[leaf]) {
            a[next] = a[root];
            a[root++] = W(next);
        } else {
            a[next] = a[leaf++];
        }
        if (leaf >= n || (root < next && a[root] < a[leaf])) {
            a[next] += a[root];
            a[root++] = W(next);
        } else {
            a[next] += a[leaf++];
        }
    }
    a[n - 2] = 0;
    for (int32_t next = n - 3; next >= 0; --next) a[next] = a[a[next]] + 1;
    int32_t avail = 1, used = 0, depth = 0, next = n - 1;
    root = n - 2;
    while (avail > 0) {
        while (root >= 0 && int32_t(a[root]) == depth) {
            ++used;
            --root;
        }
        while (avail > used) {
            a[next--] = W(depth);
            --avail;
        }
        avail = 2 * used;
        ++depth;
        used = 0;
    }
}

}  // namespace zem
