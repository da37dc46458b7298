"""Small plots as SVG: lines with marks, over two axes that begin at 0."""

import math

WIDTH, HEIGHT = 460, 300
LEFT, RIGHT, TOP, BOTTOM = 58, 16, 40, 46
COLOURS = ("#1f5fa8", "#c2571a", "#3b7d3b")
FONT = 'font-family="sans-serif" font-size="12"'


def _ticks(largest):
    """Round numbers from 0 on, up to the first that is not less than `largest`."""
    rough = (largest or 1) / 4
    power = 10 ** math.floor(math.log10(rough))
    step = next(factor * power for factor in (1, 2, 2.5, 5, 10) if factor * power >= rough)
    return [number * step for number in range(math.ceil(largest / step - 1e-9) + 1)] or [0, step]


def _text(x, y, text, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {FONT} {extra}>{text}</text>'


def draw(title, x_label, y_label, series):
    """The plot as text; series: {name: [(x, y), …]}."""
    points = [point for line in series.values() for point in line]
    x_ticks, y_ticks = _ticks(max(x for x, _ in points)), _ticks(max(y for _, y in points))
    right, bottom = WIDTH - RIGHT, HEIGHT - BOTTOM

    def place(x, y):
        return LEFT + x / x_ticks[-1] * (right - LEFT), bottom - y / y_ticks[-1] * (bottom - TOP)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" '
             f'height="{HEIGHT}" role="img" aria-label="{title}">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#ffffff"/>',
             _text(WIDTH / 2, 16, title, extra='font-weight="bold"'),
             _text((LEFT + right) / 2, HEIGHT - 8, x_label),
             _text(12, (TOP + bottom) / 2, y_label, extra=f'transform="rotate(-90 12 {(TOP + bottom) / 2:.0f})"')]
    for tick in y_ticks:
        y = place(0, tick)[1]
        parts += [f'<path d="M{LEFT} {y:.1f}H{right}" stroke="#d8d8d8"/>', _text(LEFT - 6, y + 4, f"{tick:g}", "end")]
    for tick in x_ticks:
        parts.append(_text(place(tick, 0)[0], bottom + 16, f"{tick:g}"))
    parts.append(f'<path d="M{LEFT} {TOP}V{bottom}H{right}" stroke="#444444" fill="none"/>')
    for number, (name, line) in enumerate(series.items()):
        colour = COLOURS[number % len(COLOURS)]
        places = [place(x, y) for x, y in line]
        path = "L".join(f"{x:.1f} {y:.1f}" for x, y in places)
        parts.append(f'<path d="M{path}" stroke="{colour}" stroke-width="2" fill="none"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
        parts.append(_text(LEFT + 8, TOP + 16 + 15 * number, name, "start", f'fill="{colour}"'))
    return "\n".join([*parts, "</svg>", ""])
