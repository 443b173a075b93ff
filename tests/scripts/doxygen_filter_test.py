#!/usr/bin/env python3
"""The filter gives each comment of a header to the name that a reader gives it to."""
import pathlib
import subprocess
import tempfile
import unittest

FILTER = pathlib.Path(__file__).resolve().parents[2] / "scripts/doxygen_filter.py"

C_HEADER = """\
/* The file.
 *   sid  the surface */
#pragma once

/* ---- A rule ---- */

/* Nobody's. */

/* A call. */
int call(int a);
struct record {                  /* of two
                                    lines */
    uint32_t x, y[2];            /* pixels */
    uint32_t sid;
    uint32_t bare;
};
struct line { uint32_t sid; };   /* 1041 */
"""
C_READ = """\
/** The file.
 *   sid  the surface @file */
#pragma once

/* ---- A rule ---- */

/* Nobody's. */

/** A call. */
int call(int a);
/** of two lines */ struct record {

    uint32_t x; /**< pixels */ uint32_t y[2]; /**< pixels */
    uint32_t sid; /**< the surface */
    uint32_t bare;
};
/** 1041 */ struct line { uint32_t sid; /**< the surface */ };
"""
CPP_HEADER = """\
// The file.
#pragma once
class thing {
public:
    ~thing() { kalix_end(it_); }
    void one() { check(kalix_one(it_)); }
    // Its own.
    void two() { check(kalix_two(it_)); }
    int three() const { return 3; }
};
"""
CPP_READ = """\
/// The file. @file
#pragma once
class thing {
public:
/** Gives back what it owns. */     ~thing() { kalix_end(it_); }
/** Calls kalix_one(). */     void one() { check(kalix_one(it_)); }
    /// Its own.
    void two() { check(kalix_two(it_)); }
    int three() const { return 3; }
};
"""


class Filter(unittest.TestCase):
    def test_comments_find_their_names(self):
        for name, written, read in (("a.h", C_HEADER, C_READ), ("a.hpp", CPP_HEADER, CPP_READ)):
            with self.subTest(name), tempfile.TemporaryDirectory() as folder:
                path = pathlib.Path(folder) / name
                path.write_text(written, encoding="utf-8")
                printed = subprocess.run([FILTER, path], check=True, capture_output=True, text=True).stdout
                self.assertEqual([line.rstrip() for line in printed.split("\n")], read.split("\n"))


if __name__ == "__main__":
    unittest.main()
