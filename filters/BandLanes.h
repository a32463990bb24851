// What the equaliser's bands need per sample, the bands of a channel pair side by side: number
// 2 k + c of each array belongs to band k of channel c.
//
// Per band and sample, in float, never fused and in this order (as BiquadSection::process()):
//   w = x - z1 a1 - z2 a2;  y = w b0 + z1 b1 + z2 b2;  z2 = z1, z1 = w.
#pragma once

namespace vellumic {

struct BandLanes {
  static constexpr int bands = 10;
  static constexpr int room =
      24;  // whole registers of eight; what the last four hold is never heard

  float z1[room], z2[room];
  float a1[room], a2[room];
  float b0[room], b1[room], b2[room];
  float on[room];  // 1 where the band runs, else 0
};

}  // namespace vellumic
