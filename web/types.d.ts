// Types that only the type check reads. The check: `tsc -p web`.
import type * as Declared from "./package/index.d.ts";

/** An address or a size in bytes of the module's memory. An address of 0 means out of memory. */
type Address = number;

/** What the WebAssembly module exports (web/*.cpp). Booleans arrive as 0 or 1. */
export interface Exports {
    memory: WebAssembly.Memory;
    _initialize(): void;
    malloc(bytes: number): Address;
    free(address: Address): void;
    orvane_table(): Address;

    orvane_create(): Address;
    orvane_release(effect: Address): void;
    orvane_configure(effect: Address, rateHz: number, channels: number): number;
    orvane_command(effect: Address, code: number): number;
    orvane_set(effect: Address, id: number, values: Address, count: number): number;
    orvane_get(effect: Address, id: number): number;
    orvane_process(effect: Address, from: Address, to: Address, frames: number): number;

    orvane_stream_create(rateHz: number): Address;
    orvane_stream_release(stream: Address): void;
    orvane_stream_runs(stream: Address): number;
    orvane_stream_set(stream: Address, control: number, value: number): void;
    orvane_stream_bypass(stream: Address, wanted: boolean): void;
    orvane_stream_samples(stream: Address): Address;
    orvane_stream_process(stream: Address, frames: number): void;
    orvane_stream_latency(stream: Address): number;
    orvane_stream_levels(stream: Address, ofSource: boolean, levels: Address): void;

    orvane_piece_create(): Address;
    orvane_piece_release(piece: Address): void;
    orvane_piece_set(piece: Address, control: number, value: number): void;
    orvane_piece_start(piece: Address, rateHz: number, channels: number): number;
    orvane_piece_process(piece: Address, samples: Address, count: number): number;
    orvane_piece_finish(piece: Address): number;
    orvane_piece_out(piece: Address): Address;

    orvane_meter_create(rateHz: number, channels: number): Address;
    orvane_meter_release(meter: Address): void;
    orvane_meter_add(meter: Address, samples: Address, count: number, channels: number): void;
    orvane_meter_integrated(meter: Address): number;

    orvane_tone_band_hz(band: number, rateHz: number): number;
    orvane_tone_db(levels: Address, hertz: Address, count: number, rateHz: number): void;
    orvane_tone_fit(points: Address, count: number, rateHz: number, fit: Address): void;

    orvane_settings_follow(values: Address): void;
    orvane_settings_read(text: Address, bytes: number, values: Address): Address;
    orvane_settings_text(values: Address): Address;
}

/** The module's bytes, as WebAssembly takes them. */
export type Bytes = Uint8Array<ArrayBuffer>;

/** A point of a tone curve. */
export interface TonePoint {
    hz: number;
    db: number;
}

/** Levels of the ten bands that come nearest to wanted points, and how near they come. */
export interface ToneFit {
    levels: number[];
    rmsDb: number;
    worstDb: number;
    worstHz: number;
    peakDb: number;
}

/** Both sides of a comparison. */
export interface Sides<T> {
    before: T;
    after: T;
}

/** A piece in the page. */
export interface NamedPiece extends Declared.Piece {
    name: string;
    channels: Int16Array<ArrayBuffer>[];
}

/** A rectangle in CSS pixels of a canvas. */
export interface Area {
    left: number;
    top: number;
    width: number;
    height: number;
}

/** Colours of the style sheet, by what is drawn with them. */
export type Colours = Record<
    "grid" | "zero" | "label" | "curve" | "rest" | "before" | "beforeFill" | "after",
    string
>;

// The package's public modules offer what index.d.ts declares, no more and no less.
type Offered = typeof import("./exports.js");
type Contract = typeof Declared;
type Assert<Part extends Whole, Whole> = Part;
export type OfferedFitsContract = Assert<Offered, Contract>;
export type NothingElseIsOffered = Assert<keyof Offered, keyof Contract>;

// The audio thread's globals, which TypeScript's own library lacks.
declare global {
    /** What the tests keep in the window of a page. */
    interface Window {
        heard: any;
        goOn: (value?: unknown) => void;
        hasGoneOn: boolean;
        hit: unknown;
        isDamaged: boolean;
        parts: number[];
        rates: number[];
        waiting: Set<Element | null>;
    }
    const sampleRate: number;
    class AudioWorkletProcessor {
        readonly port: MessagePort;
    }
    function registerProcessor(
        name: string,
        processor: new (options: any) => AudioWorkletProcessor,
    ): void;
}
