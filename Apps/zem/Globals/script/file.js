import { Blob } from './blob.js';
import { needArguments, optionsOf, webClass, wellFormed } from './web-class.js';

export class File extends Blob {
    #name;
    #lastModified;

    constructor(parts, name, options = {}) {
        needArguments(2, arguments.length, 'File');
        super(parts, options);
        this.#name = wellFormed(name);
        const { lastModified = Date.now() } = optionsOf(options, 'File');
        this.#lastModified = Math.trunc(Number(lastModified)) || 0;
    }

    get name() {
        return this.#name;
    }
    get lastModified() {
        return this.#lastModified;
    }
}

webClass(File, 'File');
export default File;
