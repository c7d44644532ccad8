// Builds Python values from fuzz bytes: a tiny stack language, one opcode
// byte (low 4 bits) followed by its operands. Needs the interpreter lock.
//
//   0  int from one signed byte        8  True
//   1  int from 8 bytes                9  False
//   2  long from n bytes (n < 24)     10  tuple of the top k (k < 8)
//   3  float from 8 raw bytes         11  list of the top k
//   4  edge float (nan, inf, ...)     12  dict of the top 2k, as pairs
//   5  str of n arbitrary bytes       13  a prepared object (see below)
//   6  unicode of n bytes (UTF-8      14  duplicate the top
//      with replacement, or Latin-1)  15  pop
//   7  None
//
// Prepared objects are the caller's (GifPtr handles of demo types, objects
// of unusual Python types); they live for the whole run. Missing operands
// read as zero bytes; k larger than the stack takes what there is. The
// stack holds at most kMaxStack values: pushes beyond are dropped.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "support/PyCompat.h"
#include "support/PyRef.h"

namespace zelfuzz {

class PyValueBuilder {
public:
    static constexpr size_t kMaxStack = 64;

    PyValueBuilder(uint8_t const* data, size_t size, std::vector<Zel::PyRef> const& prepared)
        : p_(data), end_(data + size), prepared_(prepared) {}
    PyValueBuilder(PyValueBuilder const&) = delete;
    PyValueBuilder& operator=(PyValueBuilder const&) = delete;

    // Runs the whole program.
    void run() {
        while (p_ < end_) step(byte() & 0x0f);
    }
    // The i-th value from the top (0: the top), borrowed; None when the
    // stack is not that deep.
    PyObject* top(size_t i) const { return i < stack_.size() ? stack_[stack_.size() - 1 - i].get() : Py_None; }

private:
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    void bytes(void* out, size_t n) {
        auto* o = static_cast<uint8_t*>(out);
        for (size_t i = 0; i < n; ++i) o[i] = byte();
    }
    // Takes a new reference; a failed construction (a Python error) is
    // the driver's, not the code under test's: cleared and skipped.
    void push(PyObject* o) {
        if (!o) {
            PyErr_Clear();
            return;
        }
        Zel::PyRef owned(o);
        if (stack_.size() < kMaxStack) stack_.push_back(std::move(owned));
    }
    Zel::PyRef pop() {
        Zel::PyRef o = std::move(stack_.back());
        stack_.pop_back();
        return o;
    }
    size_t count() { return std::min<size_t>(byte() % 8, stack_.size()); }

    void step(uint8_t op) {
        switch (op) {
        case 0: push(Zel::compat::intFromLong(static_cast<int8_t>(byte()))); break;
        case 1: {
            int64_t v;
            bytes(&v, sizeof v);
            push(Zel::compat::intFromLong(static_cast<long>(v)));
            break;
        }
        case 2: {
            unsigned char b[24];
            size_t n = byte() % sizeof b;
            bytes(b, n);
            push(_PyLong_FromByteArray(b, n, 1, 1));
            break;
        }
        case 3: {
            double d;
            bytes(&d, sizeof d);
            push(PyFloat_FromDouble(d));
            break;
        }
        case 4: {
            static double const edges[] = {std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::infinity(),
                                           -std::numeric_limits<double>::infinity(),
                                           -0.0,
                                           1e300,
                                           std::numeric_limits<double>::denorm_min(),
                                           3.4028235677973366e38,
                                           2.5};
            push(PyFloat_FromDouble(edges[byte() % 8]));
            break;
        }
        case 5: {
            size_t n = std::min<size_t>(byte(), static_cast<size_t>(end_ - p_));
            push(Zel::compat::text(reinterpret_cast<char const*>(p_), n));
            p_ += n;
            break;
        }
        case 6: {
            uint8_t how = byte();
            size_t n = std::min<size_t>(how & 0x7f, static_cast<size_t>(end_ - p_));
            char const* s = reinterpret_cast<char const*>(p_);
            push(how & 0x80 ? PyUnicode_DecodeUTF8(s, static_cast<Py_ssize_t>(n), "replace")
                            : PyUnicode_DecodeLatin1(s, static_cast<Py_ssize_t>(n), nullptr));
            p_ += n;
            break;
        }
        case 7: Py_INCREF(Py_None); push(Py_None); break;
        case 8: Py_INCREF(Py_True); push(Py_True); break;
        case 9: Py_INCREF(Py_False); push(Py_False); break;
        case 10:
        case 11: {
            size_t k = count();
            PyObject* seq = op == 10 ? PyTuple_New(static_cast<Py_ssize_t>(k)) : PyList_New(static_cast<Py_ssize_t>(k));
            // The deepest of the k becomes the first item.
            for (size_t i = k; i-- > 0;) {
                PyObject* item = pop().release();   // stolen by the container
                if (op == 10) {
                    PyTuple_SET_ITEM(seq, static_cast<Py_ssize_t>(i), item);
                } else {
                    PyList_SET_ITEM(seq, static_cast<Py_ssize_t>(i), item);
                }
            }
            push(seq);
            break;
        }
        case 12: {
            size_t k = std::min(count(), stack_.size() / 2);
            PyObject* dict = PyDict_New();
            for (size_t i = 0; i < k; ++i) {
                Zel::PyRef value = pop();
                Zel::PyRef key = pop();
                if (PyDict_SetItem(dict, key.get(), value.get()) != 0) PyErr_Clear();   // unhashable key: skipped
            }
            push(dict);
            break;
        }
        case 13:
            if (!prepared_.empty()) {
                PyObject* o = prepared_[byte() % prepared_.size()].get();
                Py_INCREF(o);
                push(o);
            }
            break;
        case 14:
            if (!stack_.empty()) {
                PyObject* o = stack_.back().get();
                Py_INCREF(o);
                push(o);
            }
            break;
        case 15:
            if (!stack_.empty()) stack_.pop_back();
            break;
        }
    }

    uint8_t const* p_;
    uint8_t const* end_;
    std::vector<Zel::PyRef> const& prepared_;
    std::vector<Zel::PyRef> stack_;
};

} // namespace zelfuzz
