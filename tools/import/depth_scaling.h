#pragma once

// View files take depth PNGs in whole thousandths of their length unit, at most 65535. When the
// source's unit would lose precision that way or overflow, the whole scene (depths and camera
// positions alike) is scaled by one factor.
namespace importer {

// Integer depth images in units of 1 / depth_scale: the factor depth_scale / 1000 keeps every
// stored value as it is, so nothing is lost and nothing overflows.
double scale_for_integer_depths(double depth_scale);

// Float depths: 1 when the largest depth fits and the median depth is at least one length unit
// (a thousand steps); otherwise the power of ten that brings the largest depth within range, or
// the median up to one unit as far as the largest depth allows.
double scale_for_float_depths(double largest, double median);

}  // namespace importer
