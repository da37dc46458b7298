// Draws a strip for each button of the page, all of them over the same time. What they are drawn from stands in the
// element "strips"; page.cpp says what is in it.
'use strict';

(() => {
    const MS_PER_S = 1000;
    const VALUES = [1, 2, 3, 4];
    const SHORTEST_WINDOW_S = 0.05;
    const ZOOM_STEP = 2;
    const MOVE_SHARE = 0.5;  // of the window
    const SCALE_MARGIN = 0.06;  // above and below, of what is shown
    const PRINT_WIDTH = 680;  // pixels; A4 with the margins of the style

    // The signal is a full line; the others have a pattern each.
    const SIGNAL_STYLE = {color: '#000000', strokeWidth: 1.5};
    const OTHER_STYLES = [
        {color: '#0072b2', strokePattern: [7, 3]},
        {color: '#00805f', strokePattern: [2, 2]},
        {color: '#a0528a', strokePattern: [8, 3, 2, 3]},
    ];
    const THRESHOLD_COLOUR = '#b34700';
    const PROPOSED_PATTERN = [6, 4];
    const STRETCH_COLOUR = '#666666';
    const FONT = '12px system-ui, sans-serif';

    const data = JSON.parse(document.getElementById('strips').textContent);
    const nameOf = value => `value ${value}`;
    const signal = data.signal + 1;

    const sum = differences => {
        let total = 0;
        return differences.map(difference => total += difference);
    };

    /// What a button did: one row for each slice, with the lowest, middle and highest of each value.
    const decode = button => {
        const index = sum(button.index);
        const min = button.min.map(sum);
        const max = min.map((numbers, value) => numbers.map((number, i) => number + button.span[value][i]));
        const starts = data.stretches.map(stretch => stretch[0]);
        const rows = [], spans = [];
        let span = null, nextStretch = 0;
        index.forEach((slice, i) => {
            const start = slice * data.slice, end = start + data.slice;
            const seconds = (start + (data.slice - 1) / 2) / MS_PER_S;
            let isApart = i > 0 && (slice - index[i - 1] - 1) * data.slice > button.gap;
            while (nextStretch < starts.length && starts[nextStretch] < end) {
                isApart = isApart || i > 0;
                nextStretch++;
            }
            if (isApart) {
                // Nothing was seen meanwhile: the line breaks here.
                rows.push([seconds - data.slice / 2 / MS_PER_S, ...VALUES.map(() => [null, null, null])]);
            }
            rows.push([seconds, ...VALUES.map((_, value) => {
                const low = min[value][i], high = max[value][i];
                return [low, (low + high) / 2, high];
            })]);
            // A touch lasts from its first sample to the first one without it.
            if (span && !isApart) {
                span[1] = start / MS_PER_S;
            }
            if (button.touched[i] === '1') {
                if (!span || isApart) {
                    spans.push(span = [start / MS_PER_S, 0]);
                }
                span[1] = end / MS_PER_S;
            } else {
                span = null;
            }
        });
        // Not Math.min(...numbers): an engine takes only so many arguments.
        const lowest = min.map(numbers => numbers.reduce((a, b) => Math.min(a, b), Infinity));
        const highest = max.map(numbers => numbers.reduce((a, b) => Math.max(a, b), -Infinity));
        return {rows, spans, lowest, highest};
    };

    /// A value shares the scale of the signal where it is about as large; otherwise its scale is on the right.
    const isNearSignal = (decoded, value) => {
        const low = decoded.lowest[signal - 1], high = decoded.highest[signal - 1];
        const reach = high - low;
        return decoded.lowest[value - 1] <= high + reach && decoded.highest[value - 1] >= low - reach;
    };

    const findScale = numbers => {
        const low = Math.min(...numbers), high = Math.max(...numbers);
        const margin = Math.max((high - low) * SCALE_MARGIN, 1);
        return [low - margin, high + margin];
    };

    const makeHatching = context => {
        const tile = document.createElement('canvas');
        tile.width = tile.height = 8;
        const pen = tile.getContext('2d');
        pen.fillStyle = '#f6e3b8';
        pen.fillRect(0, 0, 8, 8);
        pen.strokeStyle = '#c79a3a';
        pen.beginPath();
        for (const x of [-8, 0, 8]) {
            pen.moveTo(x, 8);
            pen.lineTo(x + 8, 0);
        }
        pen.stroke();
        return context.createPattern(tile, 'repeat');
    };

    const drawThreshold = (context, area, chart, threshold, text, pattern, align) => {
        if (threshold === null) {
            return;
        }
        const y = chart.toDomYCoord(threshold, 0);
        context.strokeStyle = context.fillStyle = THRESHOLD_COLOUR;
        context.lineWidth = 1.5;
        context.setLineDash(pattern);
        context.beginPath();
        context.moveTo(area.x, y);
        context.lineTo(area.x + area.w, y);
        context.stroke();
        context.textAlign = align;
        context.setLineDash([]);
        const place = [`${text} ${threshold}`, align === 'left' ? area.x + 4 : area.x + area.w - 4, y - 4];
        context.strokeStyle = '#ffffff';
        context.lineWidth = 3;
        context.strokeText(...place);
        context.fillText(...place);
    };

    /// Touches and beginnings of runs, below the lines.
    const drawUnderlay = (context, area, chart, spans) => {
        context.save();
        context.beginPath();
        context.rect(area.x, area.y, area.w, area.h);
        context.clip();
        context.font = FONT;
        context.fillStyle = makeHatching(context);
        for (const [start, end] of spans) {
            const left = chart.toDomXCoord(start);
            context.fillRect(left, area.y, Math.max(chart.toDomXCoord(end) - left, 1), area.h);
        }
        context.fillStyle = context.strokeStyle = STRETCH_COLOUR;
        context.textAlign = 'left';
        context.setLineDash([1, 3]);
        data.stretches.slice(1).forEach(([start, stamp, run]) => {
            const x = chart.toDomXCoord(start / MS_PER_S);
            context.beginPath();
            context.moveTo(x, area.y);
            context.lineTo(x, area.y + area.h);
            context.stroke();
            context.fillText(`run ${run} from ${stamp / MS_PER_S} s`, x + 3, area.y + 11);
        });
        context.restore();
    };

    /// The lines of a long log would cover them.
    const drawThresholds = (context, chart, button) => {
        const area = chart.getArea();
        context.save();
        context.font = FONT;
        drawThreshold(context, area, chart, button.now, 'now', [], 'left');
        drawThreshold(context, area, chart, button.proposed, 'proposed', PROPOSED_PATTERN, 'right');
        context.restore();
    };

    /// The time as the log's lines say it.
    const formatTime = seconds => {
        let at = [0, 0, 1];
        for (const stretch of data.stretches) {
            if (stretch[0] <= seconds * MS_PER_S + data.slice) {
                at = stretch;
            }
        }
        const stamp = Math.max(seconds + (at[1] - at[0]) / MS_PER_S, at[1] / MS_PER_S);
        const isOneRun = data.stretches.every(stretch => stretch[2] === 1);
        return `${isOneRun ? '' : `run ${at[2]}, `}${stamp.toFixed(data.slice < MS_PER_S ? 3 : 0)} s`;
    };

    /// @return the place in the rows of the last one that is not later than a time
    const findRow = (rows, seconds) => {
        let low = 0, high = rows.length - 1;
        while (low < high) {
            const middle = Math.ceil((low + high) / 2);
            if (rows[middle][0] <= seconds) {
                low = middle;
            } else {
                high = middle - 1;
            }
        }
        return low;
    };

    const makeLegend = (shown, rows, isRight) => {
        const hasPlace = shown.x !== undefined;
        const row = hasPlace ? rows[findRow(rows, shown.x)] : null;
        const items = shown.series.filter(series => series.isVisible).map(series => {
            const value = Number(series.label.slice(-1));
            let text = isRight(value) ? `${series.label} (right)` : series.label;
            if (row && row[value][0] !== null) {
                const [low, , high] = row[value];
                text += low === high ? `: ${low}` : `: ${low} to ${high}`;
            }
            return `<span><span style="color:${series.color}">${series.dashHTML}</span> ${text}</span>`;
        });
        return items.join('') + (hasPlace ? `<span>${formatTime(shown.x)}</span>` : '');
    };

    // One finger scrolls the page, two zoom.
    const usual = Dygraph.defaultInteractionModel;
    const whenTwoFingers = action => (event, chart, context) => {
        if (event.touches.length > 1) {
            action(event, chart, context);
        }
    };
    const INTERACTION = {
        ...usual,
        touchstart: whenTwoFingers(usual.touchstart),
        touchmove: whenTwoFingers(usual.touchmove),
        dblclick: () => show(wholeLog),
    };

    const strips = [];
    const isShown = [true, true, true, true];
    let wholeLog = [0, 1];
    let isFollowing = false;

    const scaleStrip = strip => {
        const left = [strip.button.now, strip.button.proposed].filter(threshold => threshold !== null), right = [];
        for (const value of VALUES) {
            const numbers = strip.isRight(value) ? right : left;
            if (isShown[value - 1] && strip.decoded.rows.length > 0) {
                numbers.push(strip.decoded.lowest[value - 1], strip.decoded.highest[value - 1]);
            }
        }
        return {
            y: {valueRange: left.length > 0 ? findScale(left) : [0, 1]},
            y2: {valueRange: right.length > 0 ? findScale(right) : [0, 1], drawAxis: right.length > 0},
        };
    };

    const describeWindow = ([start, end]) => {
        document.getElementById('window').textContent = `${formatTime(start)} to ${formatTime(end)}`;
    };

    /// All strips follow the one that the user moves.
    const follow = leader => {
        if (isFollowing) {
            return;
        }
        isFollowing = true;
        const dateWindow = leader.xAxisRange();
        for (const {chart} of strips) {
            const [start, end] = chart.xAxisRange();
            if (chart !== leader && (start !== dateWindow[0] || end !== dateWindow[1])) {
                chart.updateOptions({dateWindow});
            }
        }
        describeWindow(dateWindow);
        isFollowing = false;
    };

    const show = ([start, end]) => {
        const length = Math.min(Math.max(end - start, SHORTEST_WINDOW_S), wholeLog[1] - wholeLog[0]);
        const first = Math.min(Math.max(start, wholeLog[0]), wholeLog[1] - length);
        strips[0].chart.updateOptions({dateWindow: [first, first + length]});
    };

    /// Shows `factor` times as much as now, moved by a share of that.
    const change = (factor, share) => {
        const [start, end] = strips[0].chart.xAxisRange();
        const length = (end - start) * factor;
        const middle = (start + end) / 2 + length * share;
        show([middle - length / 2, middle + length / 2]);
    };

    const select = (leader, seconds) => {
        for (const strip of strips) {
            if (strip.chart !== leader && strip.decoded.rows.length > 0) {
                strip.chart.setSelection(findRow(strip.decoded.rows, seconds));
            }
        }
    };

    const drawStrip = button => {
        const decoded = decode(button);
        const section = document.getElementById(`strip-${button.button}`);
        const isRight = value => value !== signal && !isNearSignal(decoded, value);
        const styles = OTHER_STYLES.slice();
        const series = {};
        for (const value of VALUES) {
            const style = value === signal ? SIGNAL_STYLE : styles.shift();
            series[nameOf(value)] = {...style, axis: isRight(value) ? 'y2' : 'y'};
        }
        const strip = {button, decoded, isRight, section};
        // A chart wants rows, also for a button whose samples have no time.
        const rows = decoded.rows.length > 0 ? decoded.rows : [[0, ...VALUES.map(() => [null, null, null])]];
        const scales = scaleStrip(strip);
        strip.chart = new Dygraph(section.querySelector('.chart'), rows, {
            labels: ['s', ...VALUES.map(nameOf)],
            series,
            customBars: true,
            fillAlpha: 0.3,
            dateWindow: wholeLog,
            animatedZooms: false,
            interactionModel: INTERACTION,
            legend: 'always',
            labelsDiv: section.querySelector('.legend'),
            legendFormatter: shown => makeLegend(shown, decoded.rows, isRight),
            underlayCallback: (context, area, chart) => drawUnderlay(context, area, chart, decoded.spans),
            plugins: [{activate: () => ({
                didDrawChart: event => drawThresholds(event.drawingContext, event.dygraph, button),
            })}],
            drawCallback: (chart, isFirst) => isFirst || follow(chart),
            highlightCallback: (event, seconds) => select(strip.chart, seconds),
            unhighlightCallback: () => strips.forEach(({chart}) => chart !== strip.chart && chart.clearSelection()),
            axes: {
                x: {axisLabelFormatter: seconds => `${Number(seconds.toFixed(3))} s`, pixelsPerLabel: 80},
                y: {...scales.y, axisLabelWidth: 44, pixelsPerLabel: 25},
                y2: {...scales.y2, axisLabelWidth: 44, pixelsPerLabel: 25, drawGrid: false, independentTicks: true},
            },
        });
        strips.push(strip);
    };

    const addValueChoice = value => {
        const box = document.createElement('input');
        box.type = 'checkbox';
        box.checked = true;
        box.addEventListener('change', () => {
            isShown[value - 1] = box.checked;
            for (const strip of strips) {
                strip.chart.updateOptions({visibility: isShown.slice(), axes: scaleStrip(strip)});
            }
        });
        const label = document.createElement('label');
        label.append(box, ` ${nameOf(value)}`);
        document.getElementById('values').append(label);
    };

    const findWholeLog = () => {
        let first = Infinity, last = -Infinity;
        for (const button of data.buttons.filter(({index}) => index.length > 0)) {
            const total = button.index.reduce((a, b) => a + b);
            first = Math.min(first, button.index[0] * data.slice);
            last = Math.max(last, (total + 1) * data.slice);
        }
        return first < last ? [first / MS_PER_S, last / MS_PER_S] : [0, 1];
    };

    wholeLog = findWholeLog();
    VALUES.forEach(addValueChoice);
    data.buttons.forEach(drawStrip);
    const actions = {
        earlier: () => change(1, -MOVE_SHARE),
        later: () => change(1, MOVE_SHARE),
        in: () => change(1 / ZOOM_STEP, 0),
        out: () => change(ZOOM_STEP, 0),
        all: () => show(wholeLog),
    };
    for (const [id, action] of Object.entries(actions)) {
        document.getElementById(id).addEventListener('click', action);
    }
    describeWindow(wholeLog);

    // Paper is narrower than most windows, and what is drawn does not flow: it shrinks, for a canvas that is drawn anew
    // now would be printed before it is painted.
    window.addEventListener('beforeprint', () => {
        for (const {section} of strips) {
            const chart = section.querySelector('.chart');
            chart.style.zoom = Math.min(1, PRINT_WIDTH / chart.offsetWidth);
        }
    });
    window.addEventListener('afterprint', () => {
        for (const {section} of strips) {
            section.querySelector('.chart').style.zoom = '';
        }
    });
})();
