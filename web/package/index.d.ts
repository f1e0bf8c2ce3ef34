import type { PresetName, SettingKey } from "../table.js";

export type { PresetName, SettingKey };

/** Values by the keys of `parameters`, in their units. A key that is missing has its default. */
export type Settings = { [key in SettingKey]?: number };

export interface Parameter {
    readonly key: SettingKey;
    /** A listener's words, then the parameter's name where it says something else. */
    readonly label: string;
    /** The processor that the parameter belongs to. */
    readonly group: string;
    readonly kind: "switch" | "value";
    readonly unit: string;
    /** True for a linear gain or level, which listeners read in decibels. */
    readonly isGain: boolean;
    readonly min: number;
    readonly max: number;
    readonly step: number;
    readonly default: number;
    /** The switch that must be on for the parameter to do anything. */
    readonly needs: SettingKey | null;
    /** The equalizer's band, 0 (lowest) to 9. */
    readonly band?: number;
    /** What a value does. */
    readonly law: string;
}

export interface Preset {
    readonly name: PresetName;
    /** What the preset is for, in a few words. */
    readonly purpose: string;
    /** What the preset does, as measured. */
    readonly description: string;
    readonly values: Settings;
}

export const parameters: readonly Parameter[];
export const presets: readonly Preset[];

export interface Levels {
    /** RMS level of both channels over the last 50 ms, in dB over full scale; -Infinity for silence. */
    readonly rms: number;
    /** True peak of the louder channel over the last 50 ms, dB over full scale (ITU-R BS.1770). */
    readonly truePeak: number;
    /** Short-term loudness over the last 3 s, LUFS (EBU R 128). */
    readonly shortTerm: number;
}

export interface Options {
    preset?: PresetName;
    /** Values that replace those of the preset. */
    settings?: Settings;
    /**
     * Where the worklet's script is served: the package's `processor.js`. Without a URL, the script
     * comes from a `data:` URL, which some content security policies forbid.
     */
    processorUrl?: string | URL;
}

/**
 * The effect as a node with one stereo input. A mono input feeds both channels. Output 0 is the
 * result. Output 1 is the input, delayed by the latency of the result, so that before and after
 * can be compared in step.
 */
export class OrvaneNode extends AudioWorkletNode {
    /**
     * Returns a node that runs. Throws a RangeError if the context's rate is outside 32000 to
     * 48000 Hz, or if a preset or setting does not exist.
     */
    static create(context: BaseAudioContext, options?: Options): Promise<OrvaneNode>;
    /**
     * One k-rate AudioParam for every key of `parameters`, and "enabled". A value acts from the next
     * block of 1024 frames on, in steps that cannot be heard.
     */
    readonly parameters: AudioParamMap;
    /** Seconds by which both outputs lie behind the input. Switches change the latency. */
    readonly latency: number;
    /** Whether the effect is heard. If false, output 0 equals output 1. */
    enabled: boolean;
    /** Called with the new latency when a switch has changed it. */
    onlatency: ((seconds: number) => void) | null;
    /** Called every 50 ms. */
    onmeter: ((levels: { readonly before: Levels; readonly after: Levels }) => void) | null;
    /** Sets one value, from the next block on, without a click. */
    set(key: SettingKey | "enabled", value: number): void;
    /** Sets all values. Keys that are missing go back to their defaults. */
    apply(settings: Settings): void;
    /** Ends the processor. */
    close(): void;
}

export interface Piece {
    /** Sample rate, 32000 to 48000 Hz. */
    readonly rate: number;
    /** One or two channels of equal length. Full scale is 1.0, or 32768 in an Int16Array. */
    readonly channels: readonly Float32Array[] | readonly Int16Array[];
    /**
     * True if the samples are not multiples of 1/32768. They are then dithered to 16 bits, as
     * `orvane render` does. The noise is the same in every run.
     */
    readonly dithers?: boolean;
}
export interface Loudness {
    readonly before: number;
    readonly after: number;
}
/**
 * Returns the integrated loudness of a whole piece, in LUFS. A newer call ends the one before,
 * whose promise then never settles.
 */
export function measure(
    piece: Piece,
    settings: Settings,
    onProgress?: (loudness: Loudness) => void,
): Promise<Loudness>;
/** Returns the result as a WAV file of 16 bits, as long as the piece and in step with it. */
export function renderWav(
    piece: Piece,
    settings: Settings,
    onProgress?: (part: number) => void,
): Promise<Blob>;
/**
 * Undoes the scaling of 16-bit samples by decodeAudioData, in place, and returns `samples`.
 * Chromium multiplies positive samples by 1/32767 and the others by 1/32768. Afterwards all are
 * multiples of 1/32768 again, so that the result has the samples of `orvane render`. Only for
 * sources of 16 bits that were decoded at their own rate.
 */
export function fromDecoded(samples: Float32Array): Float32Array;
