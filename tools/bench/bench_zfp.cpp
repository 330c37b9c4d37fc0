// zfp rows: our block encoder and decoder walking the corpus's 3-D float field, beside libzfp's
// serial zfp_compress / zfp_decompress on the same field with the same parameters.
#include <string.h>
#include <zfp.h>

#include <vector>

#include "bench.h"
#include "zemdc.h"

namespace {

struct Mode {
    const char* name;
    int32_t minBits, maxBits, maxPrec;
    double tolerance;  // > 0: fixed accuracy
};

// Missing values of a partial block repeat the existing ones (1: a a a a, 2: a b b a,
// 3: a b c a), as libzfp pads them.
void pad(float* q, int n, int s) {
    if (n == 1) q[s] = q[2 * s] = q[3 * s] = q[0];
    if (n == 2) q[2 * s] = q[s], q[3 * s] = q[0];
    if (n == 3) q[3 * s] = q[0];
}

void set_mode(zemZfpState* s, const Mode& m) {
    zemsEncodeZfpSet_32f(m.minBits, m.maxBits, m.maxPrec, -10740, s);
    if (m.tolerance > 0) zemsEncodeZfpSetAccuracy_32f(m.tolerance, s);
}

// Calls fn(index of the block's first value, cx, cy, cz) for each block of the field, x
// fastest, then y, then z; c* are the block's extents inside the field (4 unless at an edge).
template <class Fn>
void for_each_block(const bench::FloatField& f, Fn fn) {
    for (int bz = 0; bz < f.nz; bz += 4)
        for (int by = 0; by < f.ny; by += 4)
            for (int bx = 0; bx < f.nx; bx += 4) {
                const int cx = f.nx - bx < 4 ? f.nx - bx : 4, cy = f.ny - by < 4 ? f.ny - by : 4;
                const int cz = f.nz - bz < 4 ? f.nz - bz : 4;
                fn(((size_t)bz * f.ny + by) * f.nx + bx, cx, cy, cz);
            }
}

// Returns the stream's size.
size_t ours_compress(const bench::FloatField& f, const Mode& m, zemZfpState* s, uint8_t* out, size_t cap) {
    zemsEncodeZfpInitLong_32f(out, (int64_t)cap, s);
    set_mode(s, m);
    const int32_t step = f.nx * 4, plane = f.nx * f.ny * 4;
    float block[64];
    for_each_block(f, [&](size_t at, int cx, int cy, int cz) {
        const float* p = &f.values[at];
        if ((cx & cy & cz) == 4) {
            zemsEncodeZfp444_32f(p, step, plane, s);
            return;
        }
        for (int z = 0; z < cz; ++z)
            for (int y = 0; y < cy; ++y) {
                memcpy(&block[16 * z + 4 * y], p + (size_t)z * f.nx * f.ny + (size_t)y * f.nx, 4 * cx);
                pad(&block[16 * z + 4 * y], cx, 1);
            }
        for (int z = 0; z < cz; ++z)
            for (int x = 0; x < 4; ++x) pad(&block[16 * z + x], cy, 4);
        for (int i = 0; i < 16; ++i) pad(&block[i], cz, 16);
        zemsEncodeZfp444_32f(block, 16, 64, s);
    });
    zemsEncodeZfpFlush_32f(s);
    uint64_t n = 0;
    zemsEncodeZfpGetCompressedSizeLong_32f(s, &n);
    return n;
}

void ours_decompress(const bench::FloatField& f, const Mode& m, zemZfpState* s, uint8_t* in, size_t len,
                     float* out) {
    zemsDecodeZfpInitLong_32f(in, (int64_t)len, s);
    set_mode(s, m);
    const int32_t step = f.nx * 4, plane = f.nx * f.ny * 4;
    float block[64];
    for_each_block(f, [&](size_t at, int cx, int cy, int cz) {
        float* p = &out[at];
        if ((cx & cy & cz) == 4) {
            zemsDecodeZfp444_32f(s, p, step, plane);
            return;
        }
        zemsDecodeZfp444_32f(s, block, 16, 64);
        for (int z = 0; z < cz; ++z)
            for (int y = 0; y < cy; ++y)
                memcpy(p + (size_t)z * f.nx * f.ny + (size_t)y * f.nx, &block[16 * z + 4 * y], 4 * cx);
    });
}

struct Ref {
    bitstream* bs;
    zfp_stream* zs;
    zfp_field* field;
    Ref(const bench::FloatField& f, const Mode& m, std::vector<uint8_t>& buf) {
        field = zfp_field_3d((void*)f.values.data(), zfp_type_float, f.nx, f.ny, f.nz);
        zs = zfp_stream_open(nullptr);
        if (m.tolerance > 0)
            zfp_stream_set_accuracy(zs, m.tolerance);
        else if (m.minBits == m.maxBits)
            zfp_stream_set_rate(zs, m.maxBits / 64.0, zfp_type_float, 3, zfp_false);
        else
            zfp_stream_set_precision(zs, (uint)m.maxPrec);
        buf.resize(zfp_stream_maximum_size(zs, field));
        bs = stream_open(buf.data(), buf.size());
        zfp_stream_set_bit_stream(zs, bs);
    }
    ~Ref() {
        zfp_field_free(field);
        zfp_stream_close(zs);
        stream_close(bs);
    }
};

void run(const bench::Corpus& c) {
    const bench::FloatField& f = c.field;
    const size_t n = f.values.size();
    const uint64_t bytes = n * sizeof(float);
    std::vector<uint8_t> state(576);
    zemZfpState* s = (zemZfpState*)state.data();
    const Mode modes[] = {{"fixed rate 8", 512, 512, 64, 0},
                          {"fixed precision 16", 0, 4171, 16, 0},
                          {"fixed accuracy 1e-3", 0, 4171, 64, 1e-3}};
    for (const Mode& m : modes) {
        std::vector<uint8_t> ref_buf;
        Ref ref(f, m, ref_buf);
        std::vector<uint8_t> ours(ref_buf.size() + 64);
        std::vector<float> back(n), ref_back(n);

        // Correct before timed: the same stream as libzfp's (which ends on a byte, ours on a
        // word), and both decoders agree on it to the bit.
        size_t ours_len = ours_compress(f, m, s, ours.data(), ours.size());
        zfp_stream_rewind(ref.zs);
        size_t ref_len = zfp_compress(ref.zs, ref.field);
        bool same = ref_len <= ours_len && ours_len - ref_len < 8 &&
                    memcmp(ours.data(), ref_buf.data(), ref_len) == 0;
        bench::require(same, std::string("zfp stream equals libzfp's, ") + m.name);
        ours_decompress(f, m, s, ours.data(), ours_len, back.data());
        zfp_field_set_pointer(ref.field, ref_back.data());
        zfp_stream_rewind(ref.zs);
        zfp_decompress(ref.zs, ref.field);
        zfp_field_set_pointer(ref.field, (void*)f.values.data());
        bench::require(memcmp(back.data(), ref_back.data(), bytes) == 0,
                       std::string("zfp decode equals libzfp's, ") + m.name);
        double ratio = double(bytes) / double(ours_len);

        {
            bench::Table t(std::string("ZFP compress, ") + m.name + " (3-D float field)", bytes);
            t.ours("zemsEncodeZfp444_32f", [&] { bench::keep(ours_compress(f, m, s, ours.data(), ours.size())); },
                   ratio);
            t.peer("zfp_compress", [&] {
                zfp_stream_rewind(ref.zs);
                bench::keep(zfp_compress(ref.zs, ref.field));
            }, ratio);
        }
        {
            bench::Table t(std::string("ZFP decompress, ") + m.name + " (3-D float field)", bytes);
            t.ours("zemsDecodeZfp444_32f", [&] {
                ours_decompress(f, m, s, ours.data(), ours_len, back.data());
                bench::keep(back[n / 2] != 0);
            }, ratio);
            zfp_field_set_pointer(ref.field, ref_back.data());
            t.peer("zfp_decompress", [&] {
                zfp_stream_rewind(ref.zs);
                bench::keep(zfp_decompress(ref.zs, ref.field));
            }, ratio);
            zfp_field_set_pointer(ref.field, (void*)f.values.data());
        }
    }
}

}  // namespace

BENCH_FAMILY("zfp", 80, run);
