"""The Pareto front of points with a speed, where more is better, and a ratio, where less is better."""


def front(points, speed, ratio):
    """Returns the points that no other point beats, fastest first.

    A point beats another if it is at least as good in both respects and better in one.  Of equal points,
    the first is on the front.
    """
    found = []
    best = None
    for point in sorted(points, key=lambda each: (-speed(each), ratio(each))):
        if best is None or ratio(point) < best:
            found.append(point)
            best = ratio(point)
    return found
