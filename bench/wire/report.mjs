// Medians, and goals that are met or missed.

let met = 0;
let goals = 0;

/** The value below which the share `q` of the values lies. */
export function quantile(values, q) {
    const sorted = [...values].sort((a, b) => a - b);
    return sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * q))];
}
export const median = (values) => quantile(values, 0.5);

export function heading(text) {
    console.log(`\n${text}`);
}

/** A row of samples: `figures` are texts, one a column. */
export function row(name, ...figures) {
    console.log(`  ${name.padEnd(18)}${figures.map((figure) => figure.padEnd(22)).join("")}`.trimEnd());
}

function goal(what, value, unit, word, limit, isMet) {
    ++goals;
    met += isMet ? 1 : 0;
    const figure = value >= 100 ? value.toFixed(0) : value.toFixed(2);
    console.log(`  ${isMet ? "PASS" : "MISS"}  ${what}: ${figure} ${unit} (goal: ${word} ${limit})`);
}
export const atLeast = (what, value, unit, limit) =>
    goal(what, value, unit, "at least", limit, value >= limit);
export const atMost = (what, value, unit, limit) => goal(what, value, unit, "at most", limit, value <= limit);
export const below = (what, value, unit, limit) => goal(what, value, unit, "below", limit, value < limit);

export function summary() {
    console.log(`\n${met} of ${goals} goals met`);
}
