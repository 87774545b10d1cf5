#pragma once

// The per-pixel work of a semi-global matching walker on one row of L labels, and the sub-label
// refinement of the best label. Hot loops: they run once per pixel and direction.

// A path starts at this pixel: Lr = C and S += C. Returns min over labels of Lr.
float sgm_start_step(float* lr, const float* c, float* s, int L);

// One step of the recurrence from the predecessor's row prev (whose minimum is m):
// lr[l] = c[l] + min(prev[l], prev[l - 1] + P1, prev[l + 1] + P1, m + P2) - m, the neighbours that
// do not exist left out, then S += lr. Returns min over labels of lr.
float sgm_path_step(float* lr, const float* prev, const float* c, float* s, int L, float P1, float P2, float m);

// Best label b with value v and its neighbours' values v_plus (b + 1) and v_minus (b - 1): b at
// either end of the L labels; else the vertex of the parabola through the three points, solved as
// a 3 x 3 system in float, when it is finite and lies in (0, L); else b.
float sgm_refine_label(int b, float v, float v_plus, float v_minus, int L);
