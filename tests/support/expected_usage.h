#pragma once

// The usage text of quillara at width 80, as a user sees it.
inline const char* const expected_usage =
    "Usage: quillara [options] -- camera_00 camera_01 ...\n"
    "\n"
    "Required: -o (--out-dir) and --depth-avg. Each camera_NN is a view file;\n"
    "README.md describes its format and how to choose --depth-avg.\n"
    "\n"
    "  -h, --help           Print this help.\n"
    "      --version        Print the version of the program.\n"
    "  -o, --out-dir        The output directory.\n"
    "      --depth-avg      The average depth of the scene. This defines the radius\n"
    "                       of the smoothing kernel.\n"
    "      --alpha-sp       The strength of the data term on the superpixel level.\n"
    "                       Default is 0.1\n"
    "      --beta-sp        The strength of the collision term on the superpixel\n"
    "                       level. Default is 1\n"
    "      --alpha          The strength of the data term. Default is 0.001\n"
    "      --beta           The strength of the collision term. Default is 1\n"
    "      --min-support-sp The minimum support of a point in the superpixel level.\n"
    "                       Points with less support will be removed from the\n"
    "                       reconstruction. Default is 2.0\n"
    "      --min-support    The minimum support of a point. Points with less support\n"
    "                       will be removed from the reconstruction. Default is 3.0\n"
    "      --superpixels    The number of superpixels generated per image. Default is\n"
    "                       5000\n";
