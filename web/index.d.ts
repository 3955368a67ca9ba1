// Types of the package ko.

/** Version of the package and of the library in it. */
export const version: string;

/** Bytes of a picture, row by row without gaps: 1 channel is gray, 3 are RGB, 4 are RGB with alpha, which is kept. */
export interface RawPixels {
    data: Uint8Array | Uint8ClampedArray;
    width: number;
    height: number;
    /** 4 if it is missing. */
    channels?: 1 | 3 | 4;
}

export type Pixels = ImageData | RawPixels;

export type Policy = "conservative" | "default" | "risky" | "always";
export type MeasureName = "score" | "detail" | "entropy" | "noise";
export type BlockMeasureName = "detail" | "entropy" | "noise";

/** How a call is watched and ended. */
export interface WatchOptions {
    /** The call rejects with the signal's reason. */
    signal?: AbortSignal | null;
    /** Gets the stage of the work and how much of it is done, 0 to 1. An error that it throws ends the call. */
    onProgress?: ((stage: string, fraction: number) => void) | null;
}

export interface EnhanceOptions extends WatchOptions {
    /** How readily pictures are enhanced. */
    policy?: Policy | null;
    /** A score of your own for the judgement, 0 to 1, the lower the better. */
    score?: number | null;
    /** Tiles across and down, 1 to 256 each; each tile gets a tone curve. Default 8 and 8. */
    grid?: readonly [number, number] | null;
    /** Most levels by which a curve rises per step, 1 to 255; 0 leaves curves as fitted. Default: the gain, and at least 3. */
    maxSlope?: number | null;
    /** Gain in the deepest shadows, 1 to 100. Default 3. */
    maxGain?: number | null;
    /** How far the gain reaches from the shadows towards the limit, 0 to 10000. Default 40. */
    strength?: number | null;
    /** Share of full brightness above which nothing changes, 0.01 to 1. Default 0.6275. */
    limit?: number | null;
    /** Brightness levels of the edge-preserving blur, 1 to 255. Default 5. */
    levels?: number | null;
    /** Megapixels, 0.01 to 250, at which the picture is judged and its curves are made, or its own size. Default 0.5. */
    workingSize?: number | "full" | null;
    /** Colour: 0 shifts the channels, 1 scales them, values between mix the two. Default 0.5. */
    ratio?: number | null;
}

export interface ApplyOptions extends WatchOptions {
    ratio?: number | null;
}

export interface RedeyeOptions extends WatchOptions {
    /** How readily a place counts as a red eye. */
    sensitivity?: "careful" | "default" | "eager" | null;
    /** Repair every place, whatever its label. */
    full?: boolean | null;
    /** Search, judge and repair as the library alone does. */
    plain?: boolean | null;
    /** Draw a frame around each place. */
    frames?: boolean | null;
    /** Places, by their index in the result, that are not repaired. */
    skip?: readonly number[] | null;
}

/** What was measured, and the most that the policy allows; null for what was not measured. */
export interface Measure {
    value: number | null;
    limit: number | null;
}

export interface Enhancement<Form extends Pixels = Pixels> {
    /** A new picture of the form of the one given. */
    pixels: Form;
    /** "left": the judgement turned the picture down; "unchanged": curves would change nothing. */
    decision: "enhanced" | "left" | "unchanged";
    reason: string | null;
    /** null if the picture was not judged. */
    measures: Record<MeasureName, Measure> | null;
    /** null unless the picture was enhanced. */
    curves: Curves | null;
}

export interface Verdict {
    enhanced: boolean;
    /** The policy whose limits the picture is within, this one or a more careful one. */
    passesAs: Policy | null;
    /** Everything that exceeds the limits of this policy itself. */
    reason: string | null;
}

export interface Judgement {
    /** The score given, and how many of 64 blocks exceed each threshold. */
    values: Record<MeasureName, number | null>;
    limits: Record<"conservative" | "default" | "risky", Record<MeasureName, number | null>>;
    /** Scores of 8 x 8 blocks, rows from the top; null for the noise of a gray picture. */
    blocks: Record<BlockMeasureName, Float32Array | null>;
    /** A block counts against the picture if its score is below it, in the case of noise above it. */
    thresholds: Record<BlockMeasureName, number>;
    verdicts: Record<Policy, Verdict>;
}

/** Left, top, right and bottom in pixels, the last two exclusive. */
export type Box = [number, number, number, number];

/** What could be a red eye. */
export interface Place {
    box: Box;
    /** What the model saw; null for a place that was not judged. */
    window: Box | null;
    label: "accepted" | "undecided" | "rejected" | null;
    /** 0 to 1, by which the label is given; null in a plain repair. */
    score: number | null;
    feScore: number | null;
    beScore: number | null;
}

export interface RedEyes<Form extends Pixels = Pixels> {
    pixels: Form;
    decision: "repaired" | "none" | "gray" | "too many";
    /** Places, judged or not, and the most that are judged. */
    found: number;
    limit: number;
    places: Place[];
}

/** Opens the shadows of a picture that benefits. */
export function enhance<Form extends Pixels>(pixels: Form, options?: EnhanceOptions | null): Promise<Enhancement<Form>>;

/** Measures what counts for and against enhancing a picture. */
export function judge(pixels: Pixels, options?: EnhanceOptions | null): Promise<Judgement>;

/** Finds and repairs red eyes. */
export function redeye<Form extends Pixels>(pixels: Form, options?: RedeyeOptions | null): Promise<RedEyes<Form>>;

/** A grid of tone curves: one for each tile of a picture, blended from tile to tile. */
export class Curves {
    private constructor();
    /** The curves that open the shadows of a picture, without a judgement. */
    static fit(pixels: Pixels, options?: EnhanceOptions | null): Promise<Curves>;
    /** Reads a file of any form, such as `ko curves` writes. */
    static load(bytes: Uint8Array | ArrayBuffer): Promise<Curves>;
    /** A file. "text" holds all curves whose number of entries is a power of two, the other forms most curves. */
    save(form?: "text" | "binary" | "encoded"): Promise<Uint8Array>;
    /** A new picture with the curves applied. */
    apply<Form extends Pixels>(pixels: Form, options?: ApplyOptions | null): Promise<Form>;
    /** Tiles across. */
    readonly columns: number;
    /** Tiles down. */
    readonly rows: number;
    /** Entries of a curve. */
    readonly entries: number;
    /** A copy of the entries: rows of tiles first, then the tiles of a row, then the entries of a tile. */
    toArray(): Promise<Uint32Array>;
    /** Gives the memory up; the curves cannot be used afterwards. */
    dispose(): void;
}

/** A call of the library failed, memory is exhausted, or a file of the package cannot be fetched. */
export class KoError extends Error {
    /** The library's messages, newest first; "" for a failure elsewhere. */
    readonly chain: string;
    /** The library's status, a number of ko/error.h. */
    readonly status: number;
}

/** Where the .wasm files and the folder redeye lie, default beside the module, and whether the module with SIMD is used. */
export function configure(settings?: {base?: URL | string; simd?: boolean}): void;
