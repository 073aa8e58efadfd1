// The registry records of operators whose parameters are a record of listed fields: all functions
// follow from the list. In a file the fields stand in their order, each aligned to its size as C
// would lay them out, with zeros between them and behind the last; a dtype has the form of dtypes,
// a vector is a 32-bit count and its elements.
#pragma once

#include <algorithm>
#include <type_traits>
#include <vector>

#include "graph/core/param_fields.h"
#include "serialization/byte_forms.h"
#include "serialization/operator_registry.h"

namespace orb {

// Where the next field begins, and what the record is aligned to.
class FieldPlace {
public:
    // Gives the bytes to leave out ahead of a field of this size.
    size_t padding_before(size_t size) {
        m_alignment = std::max(m_alignment, size);
        const size_t padding = (size - m_offset % size) % size;
        m_offset += padding + size;
        return padding;
    }
    size_t padding_at_end() const { return (m_alignment - m_offset % m_alignment) % m_alignment; }

private:
    size_t m_offset = 0;
    size_t m_alignment = 1;
};

class FieldWriter {
public:
    explicit FieldWriter(OprDumpContext& context) : m_context(context) {}

    template <typename Field>
    void operator()(const Field& field) {
        if constexpr (std::is_enum_v<Field>) {
            (*this)(static_cast<std::underlying_type_t<Field>>(field));
        } else {
            pad(m_place.padding_before(sizeof(Field)));
            write_word(m_context, field);
        }
    }
    void operator()(const kern::DType& field) { write_dtype(m_context, field); }
    template <typename Element>
    void operator()(const std::vector<Element>& field) {
        (*this)(static_cast<uint32_t>(field.size()));
        for (const Element& element : field)
            (*this)(element);
    }
    void end() { pad(m_place.padding_at_end()); }

private:
    void pad(size_t bytes) {
        const uint8_t zeros[8] = {};
        m_context.write(zeros, bytes);
    }

    OprDumpContext& m_context;
    FieldPlace m_place;
};

class FieldReader {
public:
    explicit FieldReader(OprLoadContext& context) : m_context(context) {}

    template <typename Field>
    void operator()(Field& field) {
        if constexpr (std::is_enum_v<Field>) {
            std::underlying_type_t<Field> number{};
            (*this)(number);
            field = static_cast<Field>(number);
        } else {
            skip(m_place.padding_before(sizeof(Field)));
            field = read_word<Field>(m_context);
        }
    }
    void operator()(bool& field) {
        uint8_t byte = 0;
        (*this)(byte);
        if (byte > 1)
            m_context.fail(GraphFileFault::OPERATOR);
        field = byte == 1;
    }
    void operator()(kern::DType& field) { field = read_dtype(m_context); }
    template <typename Element>
    void operator()(std::vector<Element>& field) {
        uint32_t count = 0;
        (*this)(count);
        if (count > m_context.bytes_left() / sizeof(Element))
            m_context.fail(GraphFileFault::COUNT);
        field.resize(count);
        for (Element& element : field)
            (*this)(element);
    }
    void end() { skip(m_place.padding_at_end()); }

private:
    void skip(size_t bytes) {
        uint8_t unused[8];
        m_context.read_more(unused, bytes);
    }

    OprLoadContext& m_context;
    FieldPlace m_place;
};

template <typename Param>
Param read_fields(OprLoadContext& context) {
    Param param{};
    FieldReader reader(context);
    visit_fields(param, reader);
    reader.end();
    return param;
}

// A form of which the function reads the parameters.
template <typename Operator>
OperatorRecord form_read_by(typename Operator::Param (*read)(OprLoadContext&)) {
    const auto read_checked = [read](OprLoadContext& context, size_t nr_inputs) {
        const typename Operator::Param param = read(context);
        if (!Operator::accepts(param) || !Operator::takes(param, nr_inputs))
            context.fail(GraphFileFault::OPERATOR);
        return param;
    };
    OperatorRecord record;
    record.load = [read_checked](OprLoadContext& context, const std::vector<GraphVar*>& inputs,
                                 const OperatorConfig& config) {
        return Operator::insert_new(context.graph(), inputs, read_checked(context, inputs.size()),
                                    config);
    };
    record.follow = [read_checked](OprLoadContext& context, size_t nr_inputs) {
        return Operator::nr_outputs(read_checked(context, nr_inputs));
    };
    return record;
}

template <typename Operator>
OperatorRecord current_form() {
    OperatorRecord record = form_read_by<Operator>(read_fields<typename Operator::Param>);
    record.type = &Operator::TYPE;
    record.dump = [](OprDumpContext& context, const GraphOperator& op) {
        KERN_CHECK(op.type_record() == &Operator::TYPE);
        FieldWriter writer(context);
        visit_fields(static_cast<const Operator&>(op).param(), writer);
        writer.end();
    };
    return record;
}

}  // namespace orb
