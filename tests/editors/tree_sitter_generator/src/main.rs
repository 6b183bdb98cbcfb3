// generate-parser FOLDER: makes FOLDER/src/parser.c of FOLDER/grammar.js.
#![allow(dead_code, unused_mut)]

mod generate;

fn main() -> anyhow::Result<()> {
    let folder = std::env::args().nth(1).expect("usage: generate-parser FOLDER");
    generate::generate_parser_in_directory(&folder.into(), None, 14, false, None)
}
