// The bucket sort of rotations: counting sort on the first two bytes, then a three-way radix
// quicksort on big-endian 8-byte keys inside each bucket, with insertion sort for the small
// partitions. On ordinary blocks most rotations part within a few keys, which makes this several
// times faster than the induced sort; on long repeats every comparison walks the repeat, so the
// sort counts the keys it loads and gives up when the count passes the caller's budget.
#include <string.h>

#include "blocksort/bwt_forward.h"
#include "core/bytes.h"
#include "core/check.h"

namespace zem::bwt {
namespace {

// Partitions at most this long are finished by insertion sort.
constexpr uint32_t kInsertion = 16;

struct Sorter {
    const uint8_t* text;
    uint32_t m;
    int64_t budget;

    // The 8 bytes of the rotation at start, from offset depth (depth < m: rotations that agree on
    // m bytes are equal, and a primitive text has none).
    ZEM_INLINE uint64_t key(int32_t start, uint32_t depth) const {
        uint32_t p = uint32_t(start) + depth;
        if (p >= m) p -= m;
        return __builtin_bswap64(load64(text + p));
    }

    bool less(int32_t a, int32_t b, uint32_t depth) {
        for (;;) {
            uint64_t ka = key(a, depth), kb = key(b, depth);
            if (ka != kb) return ka < kb;
            depth += 8;
            if (--budget < 0) return false;
        }
    }

    void insertion(int32_t* a, uint32_t n, uint32_t depth) {
        for (uint32_t i = 1; i < n; ++i) {
            int32_t v = a[i];
            uint32_t j = i;
            while (j > 0 && less(v, a[j - 1], depth)) {
                a[j] = a[j - 1];
                --j;
            }
            a[j] = v;
        }
        budget -= n;
    }

    uint64_t median3(const int32_t* a, uint32_t n, uint32_t depth) const {
        uint64_t x = key(a[0], depth), y = key(a[n / 2], depth), z = key(a[n - 1], depth);
        if (x > y) { uint64_t t = x; x = y; y = t; }
        if (y > z) y = z;
        return x > y ? x : y;
    }

    // Sorts a[0..n) whose rotations agree on their first `depth` bytes.
    bool run(int32_t* a, uint32_t n, uint32_t depth, int32_t* stack) {
        uint32_t top = 0;
        for (;;) {
            if (n <= kInsertion) {
                insertion(a, n, depth);
            } else {
                uint64_t pivot = median3(a, n, depth);
                // Dutch flag: [0,lt) below, [lt,i) equal, (gt,n) above.
                uint32_t lt = 0, i = 0, gt = n;
                while (i < gt) {
                    uint64_t k = key(a[i], depth);
                    int32_t v = a[i];
                    if (k < pivot) {
                        a[i++] = a[lt];
                        a[lt++] = v;
                    } else if (k > pivot) {
                        a[i] = a[--gt];
                        a[gt] = v;
                    } else {
                        ++i;
                    }
                }
                budget -= n;
                if (top + 2 > kSortStack) return false;
                if (lt > 1) {
                    stack[3 * top] = int32_t(a - base);
                    stack[3 * top + 1] = int32_t(lt);
                    stack[3 * top + 2] = int32_t(depth);
                    ++top;
                }
                if (n - gt > 1) {
                    stack[3 * top] = int32_t(a + gt - base);
                    stack[3 * top + 1] = int32_t(n - gt);
                    stack[3 * top + 2] = int32_t(depth);
                    ++top;
                }
                if (gt - lt > 1) {
                    a += lt;
                    n = gt - lt;
                    depth += 8;
                    if (budget >= 0) continue;
                }
            }
            if (budget < 0) return false;
            if (top == 0) return true;
            --top;
            a = base + stack[3 * top];
            n = uint32_t(stack[3 * top + 1]);
            depth = uint32_t(stack[3 * top + 2]);
        }
    }

    int32_t* base;
};

}  // namespace

bool bucket_sort(const Work& work, uint32_t m, uint64_t budget) {
    const uint8_t* text = work.text;
    int32_t* sa = work.sa;
    int32_t* count = work.bkt;
    int32_t* stack = work.bkt + kRadix + 1;
    memset(count, 0, sizeof(int32_t) * (kRadix + 1));
    // text[m] repeats text[0], so the pair at m - 1 wraps as a rotation does.
    for (uint32_t i = 0; i < m; ++i) ++count[text[i] << 8 | text[i + 1]];
    int32_t sum = 0;
    for (uint32_t b = 0; b < kRadix; ++b) {
        int32_t c = count[b];
        count[b] = sum;
        sum += c;
    }
    count[kRadix] = sum;
    for (uint32_t i = 0; i < m; ++i) sa[count[text[i] << 8 | text[i + 1]]++] = int32_t(i);

    Sorter s{text, m, int64_t(budget > INT64_MAX ? INT64_MAX : budget), sa};
    int32_t start = 0;
    for (uint32_t b = 0; b < kRadix; ++b) {
        int32_t end = count[b];
        if (end - start > 1 && !s.run(sa + start, uint32_t(end - start), 2, stack)) return false;
        start = end;
    }
    return true;
}

}  // namespace zem::bwt
