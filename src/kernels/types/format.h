// Memory formats: how a shape becomes strides. Formats are immutable singletons, compared by
// pointer and readable from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "kernels/types/layout.h"

namespace kern {

class KernelHandle;

class TensorFormat {
public:
    enum class Type : uint32_t { DEFAULT = 0, IMAGE = 1 };

    virtual ~TensorFormat() = default;
    Type type() const { return m_type; }
    bool is_default() const { return m_type == Type::DEFAULT; }

    // Fills the strides of a dense tensor of the layout's shape; returns the element count.
    virtual size_t fill_strides(TensorLayout& layout) const = 0;
    virtual bool is_dense(const TensorLayout& layout) const = 0;
    virtual TensorLayout collapsed(const TensorLayout& layout) const = 0;
    virtual Span span(const TensorLayout& layout) const = 0;
    virtual std::string to_string() const = 0;
    // Appends the format's payload, which follows the 32-bit type in serialised form.
    virtual void serialize_append(std::string& text) const = 0;

    // The 32-bit type and the payload.
    std::string serialize() const;

protected:
    explicit TensorFormat(Type type) : m_type(type) {}

    // Strides of a dense tensor whose product of lengths is rounded up to `row_unit` once it holds
    // the axes from `row_axis` on; returns the whole product.
    static size_t fill_dense_strides(TensorLayout& layout, size_t row_axis, size_t row_unit);
    // Merges those neighbours of the axes [first, end) whose strides continue each other. Returns
    // how many axes are gone.
    static size_t merge_axes(TensorLayout& layout, size_t first, size_t end);

private:
    Type m_type;
};

const TensorFormat* default_format();
// The format that `serialize` wrote; an unknown type or a wrong payload stops the process.
// `handle` supplies the row alignment of an image format, which is not stored.
const TensorFormat* deserialize_format(const std::string& bytes, const KernelHandle* handle);

}  // namespace kern
