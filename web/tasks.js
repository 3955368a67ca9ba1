// What the worker does, each task from plain values to plain values. A task reports its stages and how far it is.

const measures = ["score", "detail", "entropy", "noise"];
const blockMeasures = ["detail", "entropy", "noise"];
const policiesWithLimits = ["conservative", "default", "risky"];
const policies = [...policiesWithLimits, "always"];
const decisions = ["enhanced", "unchanged", "left"];
const repairDecisions = ["repaired", "none", "gray", "too many"];
const labels = ["undecided", "accepted", "rejected"];

const judgedBlocks = 64;
const placeNumbers = 13;

/** The number of the fewest digits that is this one in single precision: 0.35 stays 0.35. NaN becomes null. */
function shortest(number) {
    if (Number.isNaN(number)) {
        return null;
    }
    for (let digits = 1; digits < 9; ++digits) {
        const short = Number(number.toPrecision(digits));
        if (Math.fround(short) === Math.fround(number)) {
            return short;
        }
    }
    return Number(number.toPrecision(9));
}

function named(names, values) {
    return Object.fromEntries(names.map((name, i) => [name, values[i]]));
}

function measured(numbers) {
    return named(measures, Array.from(numbers, shortest));
}

/** The buffers that a result gives away. */
function given(...arrays) {
    return arrays.filter((array) => array !== null && array !== undefined).map((array) => array.buffer);
}

function tune(engine, {grid, maxGain, strength, limit, levels, maxSlope}) {
    engine.value("tune", grid[0], grid[1], maxGain, strength, limit, levels, maxSlope);
}

function read(engine, picture, area, report) {
    engine.call("read", picture.width, picture.height, picture.samples, area);
    engine.pass(picture, "read_rows", {report: (fraction) => report("reading", fraction)});
}

function applyCurves(engine, picture, ratio, report) {
    engine.call("apply", picture.width, picture.height, picture.samples, ratio);
    engine.pass(picture, "apply_rows", {gives: true, report: (fraction) => report("applying", fraction)});
}

function enhance(engine, {picture, tuning}, report) {
    tune(engine, tuning);
    read(engine, picture, tuning.area, report);
    report("judging", 0);
    engine.call("plan", tuning.policy, tuning.score);
    const [decision, ...numbers] = engine.numbers();
    const reason = engine.text() || null;
    report("judging", 1);
    const curves = engine.curves();
    if (curves !== null) {
        applyCurves(engine, picture, tuning.ratio, report);
    }
    const values = measured(numbers.slice(0, measures.length));
    const limits = measured(numbers.slice(measures.length));
    const found = numbers.length === 0 ? null
        : named(measures, measures.map((name) => ({value: values[name], limit: limits[name]})));
    return {
        result: {bytes: picture.bytes, decision: decisions[decision], reason, measures: found, curves},
        transfer: given(picture.bytes, curves?.array),
    };
}

/** Takes a judgement apart, number by number in the order of the module. */
function judgementOf(numbers, reasons) {
    let at = 0;
    const next = (count) => numbers.subarray(at, at += count);
    const values = measured(next(measures.length));
    const limits = named(policiesWithLimits, policiesWithLimits.map(() => measured(next(measures.length))));
    const blocks = {};
    const thresholds = {};
    for (const measure of blockMeasures) {
        const [isMeasured] = next(1);
        const scores = Float32Array.from(next(judgedBlocks));
        blocks[measure] = isMeasured !== 0 ? scores : null;
        thresholds[measure] = shortest(next(1)[0]);
    }
    const verdicts = named(policies, policies.map((_, i) => {
        const [passing] = next(1);
        const passesAs = Number.isNaN(passing) ? null : policies[passing - 1];
        return {enhanced: passesAs !== null, passesAs, reason: reasons[i] || null};
    }));
    return {values, limits, blocks, thresholds, verdicts};
}

function judge(engine, {picture, tuning}, report) {
    tune(engine, tuning);
    read(engine, picture, tuning.area, report);
    report("judging", 0);
    engine.call("judge", tuning.score);
    const result = judgementOf(engine.numbers(), engine.text().split("\n"));
    report("judging", 1);
    return {result, transfer: []};
}

function fit(engine, {picture, tuning}, report) {
    tune(engine, tuning);
    read(engine, picture, tuning.area, report);
    report("fitting", 0);
    engine.call("fit");
    const result = engine.curves();
    report("fitting", 1);
    return {result, transfer: given(result.array)};
}

function apply(engine, {picture, curves, ratio}, report) {
    engine.setCurves(curves);
    applyCurves(engine, picture, ratio, report);
    return {result: picture.bytes, transfer: given(picture.bytes)};
}

function load(engine, {bytes}) {
    engine.write("/curves", bytes);
    engine.call("load_curves");
    const result = engine.curves();
    return {result, transfer: given(result.array)};
}

function save(engine, {curves, form}) {
    engine.setCurves(curves);
    engine.call("save_curves", form);
    const result = engine.fromRoom(engine.numbers()[0]);
    return {result, transfer: given(result)};
}

// ---- red eyes

function placeOf(numbers) {
    const [judged, label, score, feScore, beScore] = numbers.slice(8);
    const isJudged = judged !== 0;
    return {
        box: Array.from(numbers.slice(0, 4)),
        window: isJudged ? Array.from(numbers.slice(4, 8)) : null,
        label: isJudged ? labels[label] : null,
        score: shortest(score),
        feScore: isJudged ? shortest(feScore) : null,
        beScore: isJudged ? shortest(beScore) : null,
    };
}

function eyesOf(numbers) {
    const [decision, changed, found, limit] = numbers;
    const places = [];
    for (let at = 4; at < numbers.length; at += placeNumbers) {
        places.push(placeOf(numbers.subarray(at, at + placeNumbers)));
    }
    return {changed: changed !== 0, eyes: {decision: repairDecisions[decision], found, limit, places}};
}

function hold(engine, picture, report) {
    engine.call("hold", picture.width, picture.height, picture.samples);
    engine.pass(picture, "hold_rows", {report});
}

/** The module puts colours beside the alpha that the room has, so rows pass to it once more. */
function giveBack(engine, picture, report) {
    engine.pass(picture, "held_rows", {gives: true, report});
}

function repairPlainly(engine, picture, {full, frames}, report) {
    hold(engine, picture, (fraction) => report("reading", fraction));
    report("searching", 0);
    engine.call("repair_plainly", picture.width, picture.height, Math.min(picture.samples, 3), full, frames);
    const {changed, eyes} = eyesOf(engine.numbers());
    report("searching", 1);
    if (changed) {
        giveBack(engine, picture, (fraction) => report("repairing", fraction));
    }
    return eyes;
}

function repairNaturally(engine, picture, {sensitivity, full, frames, skip}, report) {
    read(engine, picture, engine.value("search_area"), report);
    report("searching", 0);
    engine.toRoom(new Uint8Array(Uint32Array.from(skip).buffer));
    engine.call("find", sensitivity, full, frames, skip.length);
    const {changed, eyes} = eyesOf(engine.numbers());
    report("searching", 1);
    if (changed) {
        hold(engine, picture, (fraction) => report("repairing", fraction / 2));
        engine.call("repair");
        giveBack(engine, picture, (fraction) => report("repairing", (1 + fraction) / 2));
    }
    return eyes;
}

async function redeye(engine, {picture, choices}, report) {
    await engine.needModel();
    const repair = choices.plain ? repairPlainly : repairNaturally;
    const eyes = repair(engine, picture, choices, report);
    return {result: {bytes: picture.bytes, ...eyes}, transfer: given(picture.bytes)};
}

export const tasks = {enhance, judge, fit, apply, load, save, redeye};
