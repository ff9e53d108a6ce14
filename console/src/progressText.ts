import type { Progress } from "yvm-client";

/** How far it is, how fast, and for how long: `3 of 10 · 2.5/s · 3 s left`. */
export function progressText({ done, total, rate, remaining, finished }: Progress): string {
    const isWhole = total === null || done >= total;
    const count = total === null ? numberText(done) : `${numberText(done)} of ${numberText(total)}`;
    const parts = [finished && !isWhole ? `ended at ${count}` : count];
    if (rate !== null) {
        parts.push(rate >= 0.1 || rate === 0 ? `${numberText(rate)}/s` : `${durationText(1 / rate)} each`);
    }
    if (finished) {
        if (rate) {
            parts.push(durationText(done / rate));
        }
    } else if (remaining !== null) {
        parts.push(`${durationText(remaining)} left`);
    }
    return parts.join(" · ");
}

function numberText(value: number): string {
    return value.toLocaleString("en", {
        maximumFractionDigits: Number.isInteger(value) || value >= 100 ? 0 : 1,
    });
}

function durationText(seconds: number): string {
    if (seconds < 9.95) {
        return `${seconds.toFixed(1)} s`;
    }
    const whole = Math.round(seconds);
    const [hours, minutes, rest] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60, whole % 60];
    if (hours > 0) {
        return `${hours.toLocaleString("en")} h ${String(minutes)} min`;
    }
    return minutes > 0 ? `${String(minutes)} min ${String(rest)} s` : `${String(rest)} s`;
}
