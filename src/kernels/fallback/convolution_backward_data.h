// Backward data: by the naive loops ("NCBD"), and at the levels above this one, which have their
// own matrix products, by those ("DeconvMatmul") or by scattering ("DeconvDirect").
#pragma once

#include "kernels/fallback/convolution_choice.h"

namespace kern::fallback {

class ConvolutionBackwardDataImpl final
    : public ConvolutionChoice<naive::ConvolutionBackwardDataImpl> {
public:
    explicit ConvolutionBackwardDataImpl(KernelHandle* handle);
    const char* algorithm_set_name() const override {
        return "FALLBACK_CONVOLUTION_BACKWARD_DATA_IMPL0";
    }
    Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) override;
    // Those of the level's ConvolutionForward.
    const ConvolutionProducts& products() const override { return *m_products; }

private:
    const ConvolutionProducts* m_products;
};

}  // namespace kern::fallback
