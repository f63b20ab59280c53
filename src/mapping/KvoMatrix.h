#pragma once

#include <algorithm>
#include <cstddef>

#include "scene/KvoExport.h"

namespace kvo {

// In-place inverse by Gauss-Jordan elimination with full pivoting; a is n x n,
// row-major. False (a left part-way) for a singular matrix.
QV_EXPORT bool invertGaussJordan(double* a, int n);
QV_EXPORT bool invertGaussJordan(float* a, int n);

// A dense row-major matrix whose storage is shared by copies until one of
// them writes (so returning matrices by value costs nothing).
template <class T> class matrix {
public:
    int rows;
    int cols;
    T* data;

    matrix(int r = 1, int c = 1) : rows(std::max(1, r)), cols(std::max(1, c)), data(nullptr) { allocate(); }
    matrix(const matrix& o) : rows(o.rows), cols(o.cols), data(o.data), m_count(o.m_count) { ++*m_count; }
    matrix& operator=(const matrix& o)
    {
        if (this != &o && data != o.data) {
            release();
            rows = o.rows;
            cols = o.cols;
            data = o.data;
            m_count = o.m_count;
            ++*m_count;
        }
        return *this;
    }
    virtual ~matrix() { release(); }

    // How many matrices share this one's storage.
    int shareCount() const { return m_count ? *m_count : 0; }

    T get(int r, int c) const { return (r >= 0 && r < rows && c >= 0 && c < cols) ? data[r * cols + c] : T(); }
    const T& operator()(int r, int c) const { return data[r * cols + c]; }
    // Writes outside the matrix are ignored.
    void set(int r, int c, const T& v)
    {
        if (r < 0 || r >= rows || c < 0 || c >= cols)
            return;
        detach();
        data[r * cols + c] = v;
    }

    matrix operator*(const matrix& o) const
    {
        if (cols != o.rows)
            throw "Matrices do not have common size";
        matrix out(rows, o.cols);
        for (int i = 0; i < rows; ++i)
            for (int k = 0; k < cols; ++k) {
                const T a = data[i * cols + k];
                for (int j = 0; j < o.cols; ++j)
                    out.data[i * o.cols + j] += a * o.data[k * o.cols + j];
            }
        return out;
    }

    matrix transpose() const
    {
        matrix out(cols, rows);
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < cols; ++j)
                out.data[j * rows + i] = data[i * cols + j];
        return out;
    }

    // The inverse as a new matrix; ok tells whether the matrix was regular.
    matrix inverse(bool* ok = nullptr) const
    {
        if (rows != cols)
            throw "matrix<T> must be square.";
        matrix out(rows, cols);
        std::copy(data, data + size(), out.data);
        const bool done = invertGaussJordan(out.data, rows);
        if (ok)
            *ok = done;
        return out;
    }
    // Inverts in place; false for a singular matrix.
    bool invert()
    {
        if (rows != cols)
            throw "matrix<T> must be square.";
        detach();
        return invertGaussJordan(data, rows);
    }

    matrix subMatrix(int r0, int c0, int r, int c) const
    {
        if (r0 < 0 || c0 < 0 || r < 1 || c < 1 || r0 + r > rows || c0 + c > cols)
            throw "Sub matrix<T> is not contained in source";
        matrix out(r, c);
        for (int i = 0; i < r; ++i)
            for (int j = 0; j < c; ++j)
                out.data[i * c + j] = data[(r0 + i) * cols + c0 + j];
        return out;
    }

private:
    size_t size() const { return size_t(rows) * size_t(cols); }
    void allocate()
    {
        data = new T[size()]();
        m_count = new int(1);
    }
    void release()
    {
        if (m_count && --*m_count == 0) {
            delete[] data;
            delete m_count;
        }
        data = nullptr;
        m_count = nullptr;
    }
    // Copy on write: a shared buffer is copied before the first write.
    void detach()
    {
        if (*m_count <= 1)
            return;
        T* copy = new T[size()]();
        std::copy(data, data + size(), copy);
        --*m_count;
        data = copy;
        m_count = new int(1);
    }
    int* m_count = nullptr;
};

} // namespace kvo
