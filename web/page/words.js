// The texts that depend on results.

export const grouped = (number) => number.toLocaleString("en-GB");

export const stages = {
    open: "Opening",
    eyes: "Looking for red eyes",
    shadows: "Opening the shadows",
    preview: "Drawing",
    file: "Writing the file",
};

const counted = (count, one, many) => `${grouped(count)} ${count === 1 ? one : many}`;

export const pictures = (count) => counted(count, "picture", "pictures");

const isRepaired = ({label}) => label === "accepted" || label === null;

// Places that count as red eyes, with the index that the library knows them by.
export const redEyes = (result) =>
    result.eyes.places.map((place, index) => ({place, index})).filter(({place}) => isRepaired(place));

// One line on what was done, for the card and for the announcement.
export function outcome(result, skipped) {
    const eyes = redEyes(result).filter(({index}) => !skipped.has(index)).length;
    const done = [];
    if (result.decision === "enhanced") {
        done.push("Shadows opened");
    }
    if (eyes > 0 && result.repaired) {
        done.push(counted(eyes, "red eye repaired", "red eyes repaired"));
    }
    return done.length > 0 ? done : ["Left as it is"];
}

// The library's reason as a sentence, up to its numbers, which the table of measures holds.
function sentence(reason) {
    const text = reason.split(":")[0];
    return `${text.charAt(0).toUpperCase()}${text.slice(1)}.`;
}

// Why the shadows were not opened; null if they were.
export function explanation({decision, reason}) {
    switch (decision) {
        case "enhanced":
            return null;
        case "unchanged":
            return "The shadows of this picture are as open as they can be: an enhancement would change nothing.";
        default:
            return `The shadows were left alone. ${reason ? sentence(reason) : ""}`.trim();
    }
}

// What is worth knowing about the format of the picture.
export function notes(result) {
    const lines = [];
    if (result.deep) {
        lines.push("The picture has more than 8 bits per channel; the result has 8.");
    }
    if (result.moving) {
        lines.push("Only the first picture of the animation is used.");
    }
    if (!["JPEG", "PNG", "WebP"].includes(result.kind)) {
        lines.push(`Exif data, profile and XMP of ${result.kind} files are not carried over.`);
    }
    return lines;
}

const measureNames = {
    detail: "Blocks that would gain too little detail",
    entropy: "Blocks with too uniform dark tones",
    noise: "Blocks that are too noisy",
};

// Rows of the table of measures: a name, the value, the limit.
export function measureRows({measures}) {
    const taken = Object.entries(measureNames).filter(([name]) => typeof measures?.[name]?.value === "number");
    return taken.map(([name, text]) => ({text, value: measures[name].value, limit: measures[name].limit}));
}
