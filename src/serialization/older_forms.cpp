#include "serialization/older_forms.h"

#include "graph/opr/reduce_operator.h"
#include "graph/opr/type_convert.h"
#include "serialization/param_record.h"

namespace orb {

OperatorRecord reduce_without_data_type() {
    return form_read_by<ReduceOperator>([](OprLoadContext& context) {
        FieldReader read(context);
        kern::Reduce::Param param;
        read(param.mode);
        read(param.axis);
        return param;
    });
}

OperatorRecord conversion_to_plain_type() {
    return form_read_by<TypeConvert>([](OprLoadContext& context) {
        const auto number = read_word<uint32_t>(context);
        if (number >= NR_PLAIN_DTYPES)
            context.fail(GraphFileFault::DTYPE);
        return TypeConvertParam{kern::DType::from_enum(number)};
    });
}

OperatorRecord conversion_by_word() {
    return form_read_by<TypeConvert>([](OprLoadContext& context) {
        return TypeConvertParam{read_dtype_param(context, read_word<uint32_t>(context))};
    });
}

}  // namespace orb
