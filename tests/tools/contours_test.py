"""contour-find: the polygons it writes, the drawing, thresholds and refusals."""
import base64
import json
import re

import driver
from pictures import png, read_png


def rows_of(*lines, high=200):
    return [[high if c == "#" else 10 for c in line] for line in lines]


RING = rows_of(".......", ".#####.", ".#...#.", ".#.#.#.", ".#...#.", ".#####.", ".......")


class Contours(driver.ProgramTest):
    def polygons(self, *arguments):
        found = json.loads(self.tarn("contour-find", *arguments))
        return found, found["features"]

    def test_polygons_are_closed_and_nested_with_area_and_box(self):
        self.put("ring.png", png(7, 7, 1, RING))
        found, (outer, hole, dot) = self.polygons("ring.png", "--threshold", 100)
        self.assertEqual((found["width"], found["height"], found["threshold"]), (7, 7, 100))
        self.assertEqual(outer["geometry"]["coordinates"], [[[1, 6], [1, 1], [6, 1], [6, 6], [1, 6]]])
        self.assertEqual([f["bbox"] for f in (outer, hole, dot)], [[1, 1, 6, 6], [2, 2, 5, 5], [3, 3, 4, 4]])
        wanted = [(None, [1], 0, False, 1, 25), (0, [2], 1, True, 0, 9), (1, [], 2, False, 1, 1)]
        for feature, values in zip((outer, hole, dot), wanted):
            names = "parent", "children", "depth", "hole", "value", "area"
            self.assertEqual(feature["properties"], dict(zip(names, values)))

    def test_values_and_diagonal_choose_regions(self):
        self.put("pair.png", png(2, 2, 1, rows_of("#.", ".#")))
        for options, count in (("ones", "none"), 2), (("ones", "ones"), 1), (("zeros", "zeros"), 1), (("both", "none"), 4), \
                (("both", "both"), 2):
            found = self.polygons("pair.png", "--otsu", "--values", options[0], "--diagonal", options[1])[1]
            self.assertEqual(len(found), count, options)

    def test_otsu_parts_two_levels_at_any_depth(self):
        for bits, low, high in (8, 90, 100), (16, 40000, 41000):
            self.put("two.png", png(4, 1, 1, [[low, high, high, low]], bits))
            found, features = self.polygons("two.png", "--otsu")
            self.assertEqual((found["threshold"], len(features)), (low, 1))

    def test_the_drawing_holds_the_picture_and_one_path_for_each_polygon(self):
        for channels in 1, 3, 4:
            rows = [[v for v in row for _ in range(channels)] for row in RING]
            self.put("ring.png", png(7, 7, channels, rows))
            self.tarn("contour-find", "ring.png", "--otsu", "-o", "out.svg")
            text = self.get("out.svg").decode()
            embedded = base64.b64decode(re.search(r"base64,([^\"]+)", text)[1])
            self.assertEqual(read_png(embedded), (7, 7, channels, 8, rows))
            outer, holes = text.split('<g id="holes"')
            self.assertEqual((outer.count("<path"), holes.count("<path")), (2, 1))
            self.assertIn('d="M1 6V1H6V6Z"', outer)

    def test_wrong_options_are_refused_before_anything_is_written(self):
        self.put("ring.png", png(7, 7, 1, RING))
        for subject, words, *arguments in (
                ("--otsu", "--threshold", "--otsu", "--threshold", 5),
                ("--threshold", "whole number", "--threshold", "x"),
                ("--values", "twos", "--values", "twos"),
                ("--diagonal", "all", "--diagonal", "all"),
                ("out.png", ".svg or .json", "-o", "out.png")):
            self.refused(2, subject, words, "contour-find", "ring.png", *arguments)


driver.main()
