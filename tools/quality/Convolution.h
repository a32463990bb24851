// Convolution of many inputs with many responses, by overlap-save.
#pragma once

#include <span>
#include <vector>

namespace vellumic::quality {

using Signal = std::vector<float>;
using Channels = std::vector<Signal>;

// One sum per output: responses[output][input] applied to inputs[input], cut to the inputs' length.
// All inputs are equally long, and so are all responses.
Channels convolve(std::span<const Signal> inputs, std::span<const Channels> responses);

}  // namespace vellumic::quality
